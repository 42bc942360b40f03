#include "login/LoginMethod.h"

#include "Failure.h"
#include "login/Connecting.h"
#include "login/IdentityFile.h"
#include "terminal/Messages.h"
#include "terminal/Terminal.h"

#include <Tarnis/UserAuthenticator.h>

#include <string_view>
#include <utility>

namespace TarnisTool {

namespace {

using Result = Tarnis::AuthenticateUserResult;

// As often as users are used to.
constexpr int typingAttempts = 3;

constexpr const char* noneFits = "no pass phrase that fits was typed";

} // namespace

LoginContext::LoginContext(Tarnis::SSHSession& session, const Target& target)
    : session_(session)
    , target_(target)
{}

Result LoginContext::attempt(const Tarnis::UserAuthenticator& authenticator)
{
    const std::string before = forgetLastError(session_);
    const auto response = session_.userAuthenticate(authenticator);
    if (response == nullptr) {
        throwConnectionLost(session_, target_, "cannot log in to");
    }
    const Result result = response->getResult();
    const std::string after = session_.getLastError();
    if (result != Result::Success && !session_.isConnected()) {
        throw Failure(FailureKind::LoginDenied, "cannot log in to", target_.display(),
                      "the server ended the connection: " + after);
    }
    wasServerAsked_ = result != Result::Denied || after != before;
    if (result == Result::Partial) {
        // The server takes something else from now on, and libssh has no message that tells what.
        offered_.clear();
    } else if (wasServerAsked_ && result != Result::Success) {
        lastDenial_ = after;
        learnOfferedMethods();
    }
    return result;
}

/// The library does not hand the list on, but libssh's message for a denial has it.
void LoginContext::learnOfferedMethods()
{
    constexpr std::string_view introduction = "that can continue: ";
    const auto found = lastDenial_.find(introduction);
    if (found != std::string::npos) {
        offered_ = "," + lastDenial_.substr(found + introduction.size()) + ",";
    }
}

bool LoginContext::mayTake(const std::string& protocolName) const
{
    return offered_.empty() || offered_.find("," + protocolName + ",") != std::string::npos;
}

DefaultKeys::DefaultKeys(const Secret* passPhrase)
    : passPhrase_(passPhrase)
{}

Result DefaultKeys::attempt(LoginContext& context)
{
    return context.attempt(Tarnis::UserAuthenticatorPrivateKeyAuto(
        passPhrase_ != nullptr ? passPhrase_->text() : std::string()));
}

NamedKey::NamedKey(std::string path, const Secret* passPhrase)
    : path_(std::move(path))
    , passPhrase_(passPhrase)
{
    const IdentityFile file = IdentityFile::inspect(path_);
    problem_ = file.problem;
    isEncrypted_ = file.isEncrypted;
}

std::string NamedKey::obstacle() const
{
    if (problem_.empty() && isEncrypted_ && passPhrase_ == nullptr && !Terminal::open()) {
        return "the key is encrypted, and there is no terminal to ask for its pass phrase (" +
               wayOut() + ")";
    }
    return problem_;
}

std::string NamedKey::wayOut() const
{
    return "see --passphrase-fd and --passphrase-env";
}

Result NamedKey::attempt(LoginContext& context)
{
    if (!isEncrypted_) {
        return attemptWith(context, {}, "it holds no key that can be used");
    }
    if (passPhrase_ != nullptr) {
        return attemptWith(context, passPhrase_->text(), "the given pass phrase does not fit");
    }
    return typed_ ? attemptWith(context, typed_->text(), noneFits) : askAndAttempt(context);
}

/// \param problem what it means that the key never reaches the server.
Result NamedKey::attemptWith(LoginContext& context, const std::string& passPhrase,
                             const char* problem)
{
    const Result result =
        context.attempt(Tarnis::UserAuthenticatorPrivateKeyFile(path_, passPhrase));
    problem_ = context.wasServerAsked() ? "" : problem;
    return result;
}

Result NamedKey::askAndAttempt(LoginContext& context)
{
    problem_ = noneFits;
    const auto terminal = Terminal::open();
    for (int i = 0; terminal && i < typingAttempts; ++i) {
        auto passPhrase = terminal->askSecret("Pass phrase for the key " + path_ + ": ");
        if (!passPhrase || passPhrase->isEmpty()) {
            break;
        }
        const Result result = attemptWith(context, passPhrase->text(), noneFits);
        if (context.wasServerAsked()) {
            typed_ = std::move(passPhrase);
            return result;
        }
        terminal->write("That is not it.\n");
    }
    return Result::Denied;
}

std::string EncryptedDefaultKey::wayOut() const
{
    return "--identity takes it, with --passphrase-fd or --passphrase-env";
}

Password::Password(const Secret* password)
    : password_(password)
{}

std::string Password::obstacle() const
{
    if (password_ == nullptr && !Terminal::open()) {
        return "there is no terminal to ask for it (see --password-fd and --password-env)";
    }
    return wasRefused_ ? "none was typed" : "";
}

Result Password::attempt(LoginContext& context)
{
    if (password_ != nullptr) {
        return context.attempt(Tarnis::UserAuthenticatorPassword(password_->text()));
    }
    const auto terminal = Terminal::open();
    for (int i = 0; terminal && i < typingAttempts; ++i) {
        const auto password =
            terminal->askSecret("Password of " + context.target().display() + ": ");
        if (!password) {
            wasRefused_ = i == 0;
            break;
        }
        const Result result = context.attempt(Tarnis::UserAuthenticatorPassword(password->text()));
        if (result != Result::Denied) {
            return result;
        }
        terminal->write("The server does not accept it.\n");
    }
    return Result::Denied;
}

} // namespace TarnisTool
