#pragma once

#include "session/ConnectFailure.h"
#include "session/ConnectionLoss.h"
#include "session/ConnectionSocket.h"

#include <Tarnis/SSHAlgorithmMismatch.h>

#include <libssh/libssh.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace Tarnis {

class SSHHandleSession;

/// Makes and unmakes the connection of a session: what has to be done around ssh_connect and
/// ssh_disconnect so that both can be done again and again, and broken off.
///
/// The session's lock must be held for every operation but those that say otherwise.
class SSHSessionConnection
{
public:
    /// How often interrupt() has come so far; needs no lock. For the first moment of an attempt.
    std::uint64_t interruptCount() const { return socket_.interruptCount(); }

    /// Gets the handle's libssh session ready for an attempt: a fresh one with the same options
    /// where the present one was used before, as libssh connects each only once; no configuration
    /// files; no delayed sends; AES-GCM first where the processor is fast at it. Forgets why the
    /// last connection was lost or did not come about. False: there is no memory for it, which is
    /// noted as the failure; the present one is still in place. Throws
    /// handle_fatal_error("invalid") when the handle is invalid. \param interruptsBefore
    /// interruptCount() at the attempt's first moment.
    bool prepare(SSHHandleSession& session, std::uint64_t interruptsBefore);

    /// One try of ssh_connect, in the session's blocking mode; its result, or SSH_ERROR once the
    /// attempt was interrupted.
    int tryConnect(ssh_session session);

    /// Whether interrupt() has come since the attempt's first moment. Needs no lock.
    bool isInterrupted() const { return socket_.isInterrupted(); }

    /// Gives a failed attempt up: notes why it failed, closes its socket, and leaves an error text
    /// where libssh has none, as when the time was up. True: libssh has forgotten why, and would
    /// tell at another attempt.
    bool giveUp(SSHHandleSession& session, int result);

    /// Settings of the socket of a connection that stands: a peer that vanished is noticed within
    /// two minutes, and sending never blocks.
    static void tuneSocket(ssh_session session);

    /// Whether nothing more will come over the connection: the server has ended it, it broke, or it
    /// was interrupted. libssh takes note of its end only when it reads; this looks at the socket
    /// too, without reading.
    bool isAtEnd(SSHHandleSession& session) const;

    /// Whether the connection stands, or may still be read: what a command sent before the server
    /// ended it must stay readable. One that was interrupted here is given up with all that it
    /// brought.
    bool isAlive(SSHHandleSession& session) const;

    /// Gives what was written and not yet sent half a second to leave.
    static void flush(ssh_session session);

    /// Lets go of the connection's socket, which libssh has closed because it was told to.
    void release() noexcept
    {
        socket_.detach();
        endedHere_ = true;
    }

    /// Lets go of a connection that turned out to be lost, and keeps the reason. libssh keeps its
    /// socket open if it has not read since the end.
    void noteLoss(SSHHandleSession& session);

    /// Whether a loss was noted since the last call.
    bool takeLoss() noexcept { return std::exchange(lost_, false); }

    /// Notes as the failure of the present operation why there is no connection. False: none was
    /// lost since the last attempt to connect. Needs no lock.
    bool noteWhyLost() const { return loss_.note(); }

    /// The same, or that there never was one since. Always false.
    bool noteWhyNotConnected() const;

    /// Shuts the connection down, from any thread. Needs no lock.
    void interrupt() noexcept { socket_.interrupt(); }

    /// The algorithms that kept the last attempt from coming about.
    const std::optional<SSHAlgorithmMismatch>& algorithmMismatch() const { return mismatch_; }

    /// Keeps the known-hosts path as the caller gave it: libssh replaces the escapes in its own
    /// copy at the first attempt, and would do so again in a copy of that copy.
    void setKnownHostsFile(const std::string& path) { knownHostsFile_ = path; }

private:
    bool renew(SSHHandleSession& session);
    bool makeReady(SSHHandleSession& session);
    ConnectFacts factsOf(SSHHandleSession& session, int result) const;
    void keepReasonOfLoss(SSHHandleSession& session);
    std::optional<std::string> knownHostsFileOf(SSHHandleSession& used) const;

    ConnectionSocket socket_;
    ConnectionLoss loss_;
    std::optional<SSHAlgorithmMismatch> mismatch_;
    std::optional<std::string> knownHostsFile_;
    bool used_ = false;
    bool lost_ = false;
    bool endedHere_ = false;
    bool hasSocket_ = false;
};

} // namespace Tarnis
