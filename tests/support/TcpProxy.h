#pragma once

#include "support/LoopbackSocket.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <vector>

#include <sys/types.h>

namespace TarnisTest {

/// A proxy on 127.0.0.1 that makes a good line bad: slow, stalled, fragmented or cut. It forwards
/// every connection to one port on 127.0.0.1. The settings hold for all connections, present and
/// future, and take effect at once. Any thread may call any member.
class TcpProxy
{
public:
    enum Direction
    {
        ToServer,
        ToClient
    };

    enum class Cut
    {
        Finish, ///< orderly end (FIN), after what was forwarded already
        Reset,  ///< connection reset (RST); the peer may lose bytes on the way to it
    };

    /// Forwards to `targetPort`; listens on a port of its own.
    explicit TcpProxy(std::uint16_t targetPort);
    TcpProxy(const TcpProxy&) = delete;
    TcpProxy& operator=(const TcpProxy&) = delete;
    /// Resets every connection and ends every thread.
    ~TcpProxy();

    std::uint16_t port() const { return port_; }

    /// Every byte arrives this much later. Nothing else slows down: bytes on the way do not wait
    /// for each other.
    void setDelay(Direction direction, std::chrono::milliseconds delay);
    /// The line carries this many bytes a second; zero: as many as there are.
    void setThrottle(Direction direction, std::size_t bytesPerSecond);
    /// Every byte travels in a packet of its own.
    void setDribble(Direction direction, bool on);

    /// Forwards nothing more in this direction but keeps the connections open.
    void stall(Direction direction);
    /// Both directions.
    void stall();
    /// Undoes every stall().
    void resume();

    /// Ends every connection; new ones are still served.
    void cut(Cut how);
    /// Ends each connection once exactly this many of its bytes have been forwarded in this
    /// direction since it began; at once where there were more.
    void cutAfterBytes(Direction direction, std::uint64_t bytes, Cut how);
    /// Takes cutAfterBytes() back.
    void neverCut();

    /// Refuses new connections (there is no listener); present ones go on.
    void refuseNew();
    /// Accepts them again, on the same port.
    void acceptNew();

    /// Bytes forwarded in this direction, over all connections.
    std::uint64_t forwardedBytes(Direction direction) const;
    /// How many bytes came in at a time, over all connections in turn: mostly what the sender has
    /// written at once, sometimes several such pieces together.
    std::vector<std::size_t> pieceSizes(Direction direction) const;
    /// Connections accepted so far.
    std::size_t connectionCount() const;
    /// Connections that are open now.
    std::size_t openConnectionCount() const;

private:
    class Connection;

    struct Line
    {
        std::chrono::milliseconds delay{0};
        std::size_t bytesPerSecond = 0;
        bool dribbles = false;
        bool stalled = false;
        std::optional<std::uint64_t> cutAfter;
    };

    struct Settings
    {
        Line lines[2];
        Cut cutAfterBytes = Cut::Finish;
    };

    template <typename Change>
    void change(Change apply);
    Settings settings() const;
    void noteArrival(Direction direction, std::size_t size);
    ssize_t send(Direction direction, const UniqueFd& socket, std::string_view bytes);
    void acceptConnections();
    void accept();

    const std::uint16_t targetPort_;
    mutable std::mutex mutex_;
    UniqueFd listener_;
    std::uint16_t port_;
    Settings settings_;
    std::uint64_t forwarded_[2] = {0, 0};
    std::vector<std::size_t> pieceSizes_[2];
    std::size_t connectionCount_ = 0;
    bool stopping_ = false;
    std::list<std::unique_ptr<Connection>> connections_;
    WakeUp wakeUp_;
    std::thread acceptor_;
};

} // namespace TarnisTest
