#pragma once

#include "posix/FileDescriptor.h"

#include <libssh/libssh.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace Tarnis {

/// Waits, without the session's lock, until a connection has something to do or another thread has
/// done it already. What another thread reads off the connection does not show on the socket any
/// more: who gets it calls signal().
///
/// One thread waits; any thread may signal. watch(), forget() and arrived() are called under the
/// session's lock.
class SocketWakeUp
{
public:
    /// While the waiting thread itself reads the connection: what arrives for it need not wake it.
    /// For its life under the session's lock.
    class Awake
    {
    public:
        explicit Awake(SocketWakeUp& wakeUp) noexcept
            : wakeUp_(wakeUp)
        {
            wakeUp_.isAwake_ = true;
        }

        Awake(const Awake&) = delete;
        Awake& operator=(const Awake&) = delete;

        ~Awake() { wakeUp_.isAwake_ = false; }

    private:
        SocketWakeUp& wakeUp_;
    };

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

    /// How many bytes have arrived at the socket that nobody has read. Under the lock.
    std::size_t unread() const noexcept;

    /// There is something to do.
    void signal() noexcept;

    /// Something has come for the waiting thread, whoever has read it.
    void arrived() noexcept
    {
        if (!isAwake_) {
            signal();
        }
    }

    /// There will be something to do before long: what is waited for may be read by another thread,
    /// and libssh tells nobody. To be called by the waiting thread.
    /// \param hasMoved whether something got done meanwhile; otherwise "before long" grows.
    void lookAgainSoon(bool hasMoved) noexcept;

    /// Forgets the signals up to now. To be called by the waiting thread before it looks what there
    /// is to do.
    void clear() noexcept;

    /// Waits until there is something to do, at most so long.
    void wait(std::chrono::milliseconds limit) noexcept;

    /// Can be read from when there is something to do.
    int descriptor() const noexcept { return events_.get(); }

private:
    static constexpr std::chrono::milliseconds shortestPause{1};
    static constexpr std::chrono::milliseconds longestPause{16};

    Posix::FileDescriptor events_;
    Posix::FileDescriptor signal_;
    Posix::FileDescriptor timer_;
    Posix::FileDescriptor socket_;
    std::uint32_t watched_ = 0;
    bool isAwake_ = false;
    bool isTimed_ = false;
    std::chrono::milliseconds pause_ = shortestPause;
    std::mutex signalling_;
    bool isSignalled_ = false;
};

} // namespace Tarnis
