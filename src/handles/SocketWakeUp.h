#pragma once

#include <libssh/libssh.h>

#include <chrono>

namespace Tarnis {

/// Waits, without the session's lock, until a connection has something to do or another thread has
/// done it already. What another thread reads off the connection does not show on the socket any
/// more: who gets it calls signal().
///
/// One thread waits; any thread may signal. watch() and forget() are called under the lock.
class SocketWakeUp
{
public:
    /// Throws std::system_error when the process has no descriptors left.
    SocketWakeUp();
    SocketWakeUp(const SocketWakeUp&) = delete;
    SocketWakeUp& operator=(const SocketWakeUp&) = delete;
    ~SocketWakeUp();

    /// Looks at the session's socket from now on: for what comes, and for room where something
    /// waits to be sent.
    void watch(ssh_session session) noexcept;

    /// Lets go of the socket: as long as it is held here the connection is not closed.
    void forget() noexcept;

    void signal() noexcept;

    /// Waits until there is something to do, at most so long; forgets the signals up to then.
    void wait(std::chrono::milliseconds limit) noexcept;

    /// Can be read from when there is something to do.
    int descriptor() const noexcept { return events_; }

private:
    int events_ = -1;
    int signal_ = -1;
    int socket_ = -1;
};

} // namespace Tarnis
