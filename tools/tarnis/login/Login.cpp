#include "login/Login.h"

#include "Failure.h"
#include "login/Connecting.h"
#include "login/HostKeyCheck.h"
#include "login/IdentityFile.h"
#include "terminal/Messages.h"

#include <Tarnis/UserAuthenticator.h>

namespace TarnisTool {

namespace {

using Result = Tarnis::AuthenticateUserResult;

std::string describe(Result result)
{
    switch (result) {
    case Result::Success:
        return "accepted";
    case Result::Denied:
        return "denied";
    case Result::Partial:
        return "accepted as one step of several";
    case Result::Error:
        break;
    }
    return "failed";
}

/// Lends a secret that may not be there.
const Secret* lend(const std::optional<Secret>& secret)
{
    return secret ? &*secret : nullptr;
}

} // namespace

LoginSecrets LoginSecrets::fetch(const LoginOptions& options)
{
    LoginSecrets secrets;
    // In the order in which they are used, so that one descriptor can carry both, a line each.
    secrets.passPhrase = options.passPhrase.read("pass phrase");
    secrets.password = options.password.read("password");
    return secrets;
}

void openSession(Tarnis::SSHSession& session, Target& target, const LoginOptions& options,
                 const LoginSecrets& secrets)
{
    connectTo(session, target, options.reach);
    HostKeyCheck(session, target, options).run();
    Login(session, target, options, secrets).run();
}

Login::Login(Tarnis::SSHSession& session, const Target& target, const LoginOptions& options,
             const LoginSecrets& secrets)
    : target_(target)
    , context_(session, target)
{
    if (options.identities.empty()) {
        addDefaultKeys(secrets);
    }
    for (const std::string& path : options.identities) {
        methods_.push_back(std::make_unique<NamedKey>(path, lend(secrets.passPhrase)));
    }
    methods_.push_back(std::make_unique<Password>(lend(secrets.password)));
}

void Login::addDefaultKeys(const LoginSecrets& secrets)
{
    methods_.push_back(std::make_unique<DefaultKeys>(lend(secrets.passPhrase)));
    if (secrets.passPhrase) {
        // The encrypted ones are tried with it among the others.
        return;
    }
    for (const std::string& path : encryptedDefaultKeys()) {
        methods_.push_back(std::make_unique<EncryptedDefaultKey>(path));
    }
}

void Login::run()
{
    // The server's answer tells which methods it takes; few servers let anybody in by this one.
    const Result result = context_.attempt(Tarnis::UserAuthenticatorNone());
    if (result == Result::Success) {
        record("without proof", describe(result));
        return;
    }
    for (;;) {
        switch (tryEachMethod()) {
        case RoundResult::Success:
            return;
        case RoundResult::Partial:
            // One step is done; a method that was denied before may be the next one.
            continue;
        case RoundResult::Denied:
            refuse();
        }
    }
}

/// The accepted steps come first in the message, so that nobody looks for the mistake in them.
void Login::refuse() const
{
    std::string first;
    if (!accepted_.empty()) {
        first = accepted_ + " was accepted, but the server wants more than that";
        for (const std::string& method : context_.offeredMethods()) {
            first += (first.back() == 't' ? ": " : ", ") + method;
        }
        first += context_.lastDenial().empty() ? "" : "; ";
    }
    throw Failure(FailureKind::LoginDenied, "cannot log in to", target_.display(),
                  first + context_.lastDenial() + " (tried: " + history_ + ")");
}

Login::RoundResult Login::tryEachMethod()
{
    for (const auto& method : methods_) {
        if (method->isUsed) {
            continue;
        }
        switch (tryMethod(*method)) {
        case Result::Success:
            return RoundResult::Success;
        case Result::Partial:
            method->isUsed = true;
            accepted_ += (accepted_.empty() ? "" : ", ") + method->name();
            return RoundResult::Partial;
        default:
            break;
        }
    }
    return RoundResult::Denied;
}

Result Login::tryMethod(LoginMethod& method)
{
    if (!context_.mayTake(method.protocolName())) {
        record(method.name(), "not tried, the server does not take it");
        return Result::Denied;
    }
    const std::string obstacle = method.obstacle();
    if (!obstacle.empty()) {
        record(method.name(), "not tried, " + obstacle);
        return Result::Denied;
    }
    const Result result = method.attempt(context_);
    const std::string hitch = result == Result::Denied ? method.obstacle() : std::string();
    record(method.name(), hitch.empty() ? describe(result) : "not tried, " + hitch);
    return result;
}

void Login::record(const std::string& what, const std::string& result)
{
    history_ += (history_.empty() ? "" : "; ") + what + ": " + result;
}

} // namespace TarnisTool
