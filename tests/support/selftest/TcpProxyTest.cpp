#include "support/TcpProxy.h"

#include "support/PseudoRandom.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <poll.h>
#include <sys/socket.h>

namespace TarnisTest {
namespace {

// Both ends of one connection through a proxy: plain sockets on either side.
class TcpProxyTest : public testing::Test
{
protected:
    void connect()
    {
        client_ = connectToLoopback(proxy_.port());
        server_ = acceptConnection(listener_);
        ASSERT_TRUE(server_.isOpen());
    }

    UniqueFd listener_ = listenOnLoopback();
    TcpProxy proxy_{localPort(listener_)};
    UniqueFd client_;
    UniqueFd server_;
};

void send(const UniqueFd& socket, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        ASSERT_GT(sent, 0);
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

constexpr std::size_t kPiece = 65536;

// One read: what came, or nothing at the end of the stream or on an error, which errno then tells.
std::string receiveOnce(const UniqueFd& socket, std::size_t most = kPiece)
{
    std::string bytes(most, '\0');
    errno = 0;
    const ssize_t size = ::recv(socket.get(), bytes.data(), bytes.size(), 0);
    bytes.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return bytes;
}

// As many bytes as asked for, or those up to the end of the stream.
std::string receive(const UniqueFd& socket, std::size_t size)
{
    std::string all;
    for (std::string piece;
         all.size() < size &&
         !(piece = receiveOnce(socket, std::min(size - all.size(), kPiece))).empty();) {
        all += piece;
    }
    return all;
}

std::string receiveToEnd(const UniqueFd& socket)
{
    return receive(socket, std::numeric_limits<std::size_t>::max());
}

bool isReadable(const UniqueFd& socket, int milliseconds)
{
    pollfd watched{socket.get(), POLLIN, 0};
    return ::poll(&watched, 1, milliseconds) > 0;
}

TEST_F(TcpProxyTest, TellsInWhatPiecesTheBytesCame)
{
    connect();
    send(client_, "abc");
    EXPECT_EQ(receive(server_, 3), "abc");
    send(client_, "defgh");
    EXPECT_EQ(receive(server_, 5), "defgh");
    EXPECT_EQ(proxy_.pieceSizes(TcpProxy::ToServer), (std::vector<std::size_t>{3, 5}));
    EXPECT_TRUE(proxy_.pieceSizes(TcpProxy::ToClient).empty());
}

TEST_F(TcpProxyTest, ForwardsAndCountsBothDirections)
{
    connect();
    const std::string up = pseudoRandomBytes(1, 200000);
    const std::string down = pseudoRandomBytes(2, 100000);
    send(client_, up);
    EXPECT_EQ(receive(server_, up.size()), up);
    send(server_, down);
    EXPECT_EQ(receive(client_, down.size()), down);
    EXPECT_EQ(proxy_.forwardedBytes(TcpProxy::ToServer), up.size());
    EXPECT_EQ(proxy_.forwardedBytes(TcpProxy::ToClient), down.size());
    EXPECT_EQ(proxy_.connectionCount(), 1U);
    EXPECT_EQ(proxy_.openConnectionCount(), 1U);
}

TEST_F(TcpProxyTest, PassesTheEndOfOneDirectionOn)
{
    connect();
    send(client_, "last words");
    ::shutdown(client_.get(), SHUT_WR);
    EXPECT_EQ(receiveToEnd(server_), "last words");
    send(server_, "answer");
    EXPECT_EQ(receive(client_, 6), "answer");
    server_.reset();
    EXPECT_EQ(receiveToEnd(client_), "");
    EXPECT_TRUE(waitUntil([this] { return proxy_.openConnectionCount() == 0; }));
}

TEST_F(TcpProxyTest, DelaysWithoutSlowingDown)
{
    constexpr std::chrono::milliseconds kDelay{100};
    proxy_.setDelay(TcpProxy::ToServer, kDelay);
    connect();
    const auto begin = std::chrono::steady_clock::now();
    const std::string bytes = pseudoRandomBytes(3, 1000);
    for (const char byte : bytes) {
        send(client_, {&byte, 1});
    }
    EXPECT_EQ(receive(server_, bytes.size()), bytes);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, kDelay);
    // One after the other the bytes would have taken 100 seconds.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kDelay * bytes.size());
}

TEST_F(TcpProxyTest, ThrottlesTheLine)
{
    proxy_.setThrottle(TcpProxy::ToClient, 1000000);
    connect();
    const std::string bytes = pseudoRandomBytes(4, 100000);
    const auto begin = std::chrono::steady_clock::now();
    send(server_, bytes);
    EXPECT_EQ(receive(client_, bytes.size()), bytes);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(90));
}

TEST_F(TcpProxyTest, DribblesByteByByte)
{
    proxy_.setDribble(TcpProxy::ToServer, true);
    connect();
    const std::string bytes = pseudoRandomBytes(5, 5000);
    send(client_, bytes);
    EXPECT_EQ(receive(server_, bytes.size()), bytes);
}

TEST_F(TcpProxyTest, StallsAndResumes)
{
    connect();
    send(client_, "before");
    EXPECT_EQ(receive(server_, 6), "before");
    proxy_.stall(TcpProxy::ToServer);
    send(client_, "held");
    send(server_, "free");
    EXPECT_EQ(receive(client_, 4), "free");
    EXPECT_FALSE(isReadable(server_, 50));
    proxy_.stall();
    send(server_, "both");
    EXPECT_FALSE(isReadable(client_, 50));
    proxy_.resume();
    EXPECT_EQ(receive(server_, 4), "held");
    EXPECT_EQ(receive(client_, 4), "both");
}

TEST_F(TcpProxyTest, PushesBackOnASenderWhileStalled)
{
    connect();
    proxy_.stall();
    setNonBlocking(client_);
    const std::string block(1 << 20, 'x');
    std::size_t accepted = 0;
    // The socket buffers fill up, and then nothing more goes in.
    EXPECT_TRUE(waitUntil([&] {
        const ssize_t sent = ::send(client_.get(), block.data(), block.size(), MSG_NOSIGNAL);
        accepted += sent > 0 ? static_cast<std::size_t>(sent) : 0;
        return sent < 0 && errno == EAGAIN;
    }));
    EXPECT_GT(accepted, 0U);
    EXPECT_EQ(proxy_.forwardedBytes(TcpProxy::ToServer), 0U);
}

TEST_F(TcpProxyTest, CutsInAnOrderlyWay)
{
    connect();
    send(server_, "greeting");
    EXPECT_EQ(receive(client_, 8), "greeting");
    proxy_.cut(TcpProxy::Cut::Finish);
    EXPECT_EQ(receiveOnce(client_), "");
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(receiveOnce(server_), "");
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(proxy_.openConnectionCount(), 0U);
}

TEST_F(TcpProxyTest, CutsByReset)
{
    connect();
    send(server_, "greeting");
    EXPECT_EQ(receive(client_, 8), "greeting");
    proxy_.cut(TcpProxy::Cut::Reset);
    EXPECT_EQ(receiveOnce(client_), "");
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(receiveOnce(server_), "");
    EXPECT_EQ(errno, ECONNRESET);
}

TEST_F(TcpProxyTest, CutsAfterExactlyTheBytesAskedFor)
{
    proxy_.cutAfterBytes(TcpProxy::ToClient, 1234, TcpProxy::Cut::Finish);
    connect();
    const std::string bytes = pseudoRandomBytes(6, 4000);
    send(client_, bytes);
    EXPECT_EQ(receive(server_, bytes.size()), bytes);
    send(server_, bytes);
    EXPECT_EQ(receiveToEnd(client_), bytes.substr(0, 1234));
    EXPECT_EQ(proxy_.forwardedBytes(TcpProxy::ToClient), 1234U);
}

TEST_F(TcpProxyTest, ServesNewConnectionsAfterACut)
{
    connect();
    proxy_.cutAfterBytes(TcpProxy::ToServer, 1, TcpProxy::Cut::Reset);
    send(client_, "xy");
    EXPECT_EQ(receiveToEnd(client_), "");
    proxy_.neverCut();
    connect();
    send(client_, "hello");
    EXPECT_EQ(receive(server_, 5), "hello");
    EXPECT_EQ(proxy_.connectionCount(), 2U);
}

TEST_F(TcpProxyTest, RefusesAndAcceptsNewConnections)
{
    connect();
    proxy_.refuseNew();
    EXPECT_THROW(connectToLoopback(proxy_.port()), std::system_error);
    send(client_, "old");
    EXPECT_EQ(receive(server_, 3), "old");
    proxy_.acceptNew();
    connect();
    send(client_, "new");
    EXPECT_EQ(receive(server_, 3), "new");
}

TEST_F(TcpProxyTest, EndsAConnectionWhoseTargetRefuses)
{
    listener_.reset();
    client_ = connectToLoopback(proxy_.port());
    EXPECT_EQ(receiveToEnd(client_), "");
}

TEST_F(TcpProxyTest, LetsGoOfAStalledConnectionWhenDestroyed)
{
    auto proxy = std::make_unique<TcpProxy>(localPort(listener_));
    client_ = connectToLoopback(proxy->port());
    server_ = acceptConnection(listener_);
    proxy->stall();
    send(client_, "never arrives");
    proxy.reset();
    EXPECT_EQ(receiveToEnd(server_), "");
    EXPECT_EQ(receiveToEnd(client_), "");
}

} // namespace
} // namespace TarnisTest
