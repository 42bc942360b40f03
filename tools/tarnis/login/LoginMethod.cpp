#include "login/LoginMethod.h"

#include "Failure.h"
#include "login/Connecting.h"
#include "login/IdentityFile.h"
#include "terminal/Messages.h"
#include "terminal/Terminal.h"

#include <FileSystem/Failure.h>
#include <Tarnis/SSHFailureCode.h>
#include <Tarnis/UserAuthenticator.h>

#include <system_error>
#include <utility>

namespace TarnisTool {

namespace {

using Result = Tarnis::AuthenticateUserResult;

// As many attempts as ssh gives.
constexpr int typingAttempts = 3;

constexpr const char* noneFits = "no pass phrase that fits was typed";

/// A key that cannot be used never gets to the server.
bool isAboutTheKey(const std::error_code& code)
{
    using Code = Tarnis::SSHFailureCode;
    return code == Code::KeyFileMissing || code == Code::KeyFileUnreadable ||
           code == Code::NotAKey || code == Code::WrongPassPhrase;
}

} // namespace

LoginContext::LoginContext(Tarnis::SSHSession& session, const Target& target)
    : session_(session)
    , target_(target)
{}

Result LoginContext::attempt(const Tarnis::UserAuthenticator& authenticator)
{
    const auto response = session_.userAuthenticate(authenticator);
    const auto why = FileSystem::Failure::last();
    if (response == nullptr) {
        throwConnectionLost(target_, "cannot log in to", why);
    }
    const Result result = response->getResult();
    if (result != Result::Success && !session_.isConnected()) {
        throw Failure(FailureKind::LoginDenied, "cannot log in to", target_.display(),
                      "the server ended the connection: " + reasonOf(why));
    }
    wasServerAsked_ = !isAboutTheKey(why.code());
    if (result == Result::Partial) {
        // An earlier denial says nothing of the step that the server wants now.
        lastDenial_.clear();
    } else if (wasServerAsked_ && result != Result::Success) {
        lastDenial_ = why.cause();
    }
    return result;
}

std::set<std::string> LoginContext::offeredMethods() const
{
    return session_.getOfferedMethods();
}

bool LoginContext::mayTake(const std::string& protocolName) const
{
    const auto offered = offeredMethods();
    return offered.empty() || offered.count(protocolName) > 0;
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
    IdentityFile file = IdentityFile::inspect(path_);
    problem_ = std::move(file.problem);
    isEncrypted_ = file.isEncrypted;
    content_ = std::move(file.content);
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
        content_
            ? context.attempt(Tarnis::UserAuthenticatorPrivateKey(content_->text(), passPhrase))
            : context.attempt(Tarnis::UserAuthenticatorPrivateKeyFile(path_, passPhrase));
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
