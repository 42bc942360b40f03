#pragma once

#include "auth/PrivateKeyImport.h"

#include <Tarnis/RemoteSessionState.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <libssh/libssh.h>

#include <atomic>
#include <memory>
#include <string>

namespace Tarnis {

class SSHHandleSession;

/// Carries out a user authentication on a session whose host was accepted: the authenticator
/// accepts it as a visitor, and it leaves the response. The user's name is the one set on the
/// session.
class SSHSessionUserAuthenticator : private UserAuthenticatorVisitorConst
{
public:
    using SharedState = std::shared_ptr<std::atomic<RemoteSessionState>>;

    /// Runs the procedure that `authenticator` asks for, and notes why it did not succeed. Holds
    /// the session's lock and keeps it in non-blocking mode while the server is asked. Throws
    /// handle_fatal_error("invalid") when the session's handle is invalid.
    static std::unique_ptr<UserAuthenticatorResponse>
    run(SSHHandleSession& session, SharedState state, const UserAuthenticator& authenticator);

private:
    /// How to read a private key from a file or from a text, null when it cannot be read, and how
    /// to tell why it could not.
    struct KeyReading
    {
        PrivateKey (*import)(const std::string& source, const std::string& passPhrase);
        void (*noteFailure)(const std::string& source);
    };

    SSHSessionUserAuthenticator(SSHHandleSession& session, SharedState state);

    void visit(const UserAuthenticatorPrivateKeyAuto& authenticator) override;
    void visit(const UserAuthenticatorPrivateKeyFile& authenticator) override;
    void visit(const UserAuthenticatorPrivateKey& authenticator) override;
    void visit(const UserAuthenticatorPassword& authenticator) override;
    void visit(const UserAuthenticatorNone& authenticator) override;

    template <class Function, class... Args>
    AuthenticateUserResult ask(Function function, Args... args);
    AuthenticateUserResult askWithKey(KeyReading reading, const std::string& source,
                                      const std::string& passPhrase);

    SSHHandleSession* session_;
    SharedState state_;
    std::unique_ptr<UserAuthenticatorResponse> response_;
};

} // namespace Tarnis
