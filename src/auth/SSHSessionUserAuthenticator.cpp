#include "auth/SSHSessionUserAuthenticator.h"

#include "auth/KeyFailure.h"
#include "auth/LoginFailure.h"
#include "handles/CString.h"
#include "handles/SSHCall.h"
#include "handles/SSHHandleSession.h"

#include <FileSystem/FailureScope.h>

#include <libssh/callbacks.h>

#include <utility>

namespace Tarnis {

namespace {

/// libssh takes the name set on the session.
constexpr const char* sessionUserName = nullptr;

AuthenticateUserResult resultOf(int answer)
{
    switch (answer) {
    case SSH_AUTH_SUCCESS:
        return AuthenticateUserResult::Success;
    case SSH_AUTH_ERROR:
        return AuthenticateUserResult::Error;
    case SSH_AUTH_PARTIAL:
        return AuthenticateUserResult::Partial;
    default:
        return AuthenticateUserResult::Denied;
    }
}

/// Makes libssh's search for a key refuse as well: without a callback, an encrypted key in PEM or
/// PKCS#8 form makes the cryptographic library ask at the terminal.
ssh_callbacks_struct makePromptRefusal()
{
    ssh_callbacks_struct callbacks{};
    callbacks.size = sizeof callbacks;
    callbacks.auth_function = refusePrompt;
    return callbacks;
}

// libssh keeps a pointer to it for as long as the session lives.
ssh_callbacks_struct promptRefusal = makePromptRefusal();

/// For a text with a NUL byte, which would go out cut short.
AuthenticateUserResult refuseText()
{
    FileSystem::fail(FileSystem::FailureCode::BadName, "there is a NUL byte in it");
    return AuthenticateUserResult::Denied;
}

} // namespace

std::unique_ptr<UserAuthenticatorResponse>
SSHSessionUserAuthenticator::run(SSHHandleSession& session, SharedState state,
                                 const UserAuthenticator& authenticator)
{
    SSHSessionUserAuthenticator procedure(session, std::move(state));
    authenticator.accept(procedure);
    return std::move(procedure.response_);
}

SSHSessionUserAuthenticator::SSHSessionUserAuthenticator(SSHHandleSession& session,
                                                         SharedState state)
    : session_(&session)
    , state_(std::move(state))
{}

void SSHSessionUserAuthenticator::visit(const UserAuthenticatorPrivateKeyAuto& authenticator)
{
    static_cast<void>(callLocked(*session_, ssh_set_callbacks, &promptRefusal));
    const std::string& passPhrase = authenticator.getPassPhrase();
    response_ = std::make_unique<UserAuthenticatorResponsePrivateKeyAuto>(
        fitsCString(passPhrase) ? ask(ssh_userauth_publickey_auto, nullIfEmpty(passPhrase))
                                : refuseText());
}

void SSHSessionUserAuthenticator::visit(const UserAuthenticatorPrivateKeyFile& authenticator)
{
    response_ = std::make_unique<UserAuthenticatorResponsePrivateKeyFile>(
        askWithKey({importPrivateKeyFile, noteKeyFileFailure}, authenticator.getPrivateKeyFile(),
                   authenticator.getPassPhrase()));
}

void SSHSessionUserAuthenticator::visit(const UserAuthenticatorPrivateKey& authenticator)
{
    response_ = std::make_unique<UserAuthenticatorResponsePrivateKey>(
        askWithKey({importPrivateKey, noteKeyTextFailure}, authenticator.getPrivateKeyB64(),
                   authenticator.getPassPhrase()));
}

void SSHSessionUserAuthenticator::visit(const UserAuthenticatorPassword& authenticator)
{
    // Accounts without a password exist. libssh would crash on a null one.
    const std::string& password = authenticator.getPassword();
    response_ = std::make_unique<UserAuthenticatorResponsePassword>(
        fitsCString(password) ? ask(ssh_userauth_password, password.c_str()) : refuseText());
}

void SSHSessionUserAuthenticator::visit(const UserAuthenticatorNone& /*authenticator*/)
{
    response_ = std::make_unique<UserAuthenticatorResponseNone>(ask(ssh_userauth_none));
}

template <class Function, class... Args>
AuthenticateUserResult SSHSessionUserAuthenticator::ask(Function function, Args... args)
{
    // What libssh says of a failure is there until the next call.
    const auto lock = session_->getLock();
    bool asked = false;
    const auto attempt = [&](ssh_session session) {
        if (std::exchange(asked, true) && canNeverAnswer(session)) {
            return static_cast<int>(SSH_AUTH_ERROR);
        }
        return function(session, sessionUserName, args...);
    };
    const int answer = callUnblocked<SSH_AUTH_AGAIN>(*session_, attempt);
    if (answer != SSH_AUTH_SUCCESS) {
        noteLoginFailure(*session_, answer);
    }
    return resultOf(answer);
}

AuthenticateUserResult SSHSessionUserAuthenticator::askWithKey(KeyReading reading,
                                                               const std::string& source,
                                                               const std::string& passPhrase)
{
    if (!fitsCString(source) || !fitsCString(passPhrase)) {
        return refuseText();
    }
    const PrivateKey key = reading.import(source, passPhrase);
    if (key == nullptr) {
        reading.noteFailure(source);
        return AuthenticateUserResult::Denied;
    }
    return ask(ssh_userauth_publickey, key.get());
}

} // namespace Tarnis
