#pragma once

#include "posix/FileDescriptor.h"

#include <cstdint>
#include <mutex>

namespace Tarnis {

/// A second descriptor of a connection's socket, through which any thread can break the connection
/// without the session's lock, while another thread holds that lock inside libssh.
///
/// Any thread may call any operation; none blocks.
class ConnectionSocket
{
public:
    ConnectionSocket() = default;
    ConnectionSocket(const ConnectionSocket&) = delete;
    ConnectionSocket& operator=(const ConnectionSocket&) = delete;

    /// How often interrupt() has come so far. An attempt to connect asks at its very first moment,
    /// before it waits for anything: what comes later is meant for it.
    std::uint64_t interruptCount() const;

    /// An attempt to connect begins that has found `interruptsBefore` at its first moment: those
    /// are over, each later one holds for it. Lets go of the socket of an earlier connection.
    void expect(std::uint64_t interruptsBefore);

    /// Duplicates the attempt's socket and keeps both from child processes; it is shut down at once
    /// when interrupt() came meanwhile.
    /// Does nothing for a negative descriptor, or when there is a socket already.
    void attach(int socket);

    /// Lets go of the socket. Without this, the peer would not see that the connection was closed.
    void detach() noexcept;

    /// Shuts the connection down, now or as soon as it is attached.
    void interrupt() noexcept;

    /// Whether interrupt() has come since the first moment of the attempt.
    bool isInterrupted() const;

    /// Whether the peer has closed the connection, or it was shut down or broke: nothing will
    /// arrive after what has arrived. False without a socket.
    bool isAtEnd() const;

    /// Whether something has arrived that was not read yet. False without a socket.
    bool hasUnread() const;

    /// The error by which the connection broke, a value of errno, which the system tells only once;
    /// 0 when there is none to tell.
    int takeError() const;

private:
    mutable std::mutex mutex_;
    Posix::FileDescriptor socket_;
    std::uint64_t interrupts_ = 0;
    std::uint64_t interruptsBefore_ = 0;
};

} // namespace Tarnis
