#pragma once

#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/RemoteSessionState.h>

#include <atomic>
#include <memory>

namespace Tarnis {

class SSHHandleSession;

/// Carries out a host authentication on a connected session: the authenticator accepts it as a
/// visitor, and it leaves the response. None of its steps changes the session's blocking mode or
/// is tried twice: all that they need has arrived with the key exchange.
class SSHSessionHostAuthenticator : private HostAuthenticatorVisitorConst
{
public:
    using SharedState = std::shared_ptr<std::atomic<RemoteSessionState>>;

    /// Runs the procedure that `authenticator` asks for, and notes why it did not accept. Throws
    /// handle_fatal_error("invalid") when the session's handle is invalid.
    static std::unique_ptr<HostAuthenticatorResponse>
    run(SSHHandleSession& session, SharedState state, const HostAuthenticator& authenticator);

private:
    SSHSessionHostAuthenticator(SSHHandleSession& session, SharedState state);

    void visit(const HostAuthenticatorKnownHostFile& authenticator) override;
    void visit(const HostAuthenticatorHostKey& authenticator) override;
    void visit(const HostAuthenticatorNone& authenticator) override;

    struct LookUp;

    LookUp lookUp();
    void noteRefusal(const LookUp& found);
    void updateKnownHosts();

    SSHHandleSession* session_;
    SharedState state_;
    std::unique_ptr<HostAuthenticatorResponse> response_;
};

} // namespace Tarnis
