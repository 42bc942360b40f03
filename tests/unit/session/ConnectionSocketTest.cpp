#include "session/ConnectionSocket.h"

#include "support/LoopbackSocket.h"
#include "support/UniqueFd.h"
#include "util/Background.h"

#include <gtest/gtest.h>

#include <cerrno>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using Tarnis::ConnectionSocket;
using TarnisTest::acceptConnection;
using TarnisTest::Background;
using TarnisTest::connectToLoopback;
using TarnisTest::listenOnLoopback;
using TarnisTest::localPort;
using TarnisTest::UniqueFd;

namespace {

constexpr int longMilliseconds = 60'000;

/// A TCP connection: `client` is the library's end, `server` the peer's.
class SecondDescriptor : public ::testing::Test
{
protected:
    /// Whether the peer finds the connection closed or shut down.
    bool peerSeesTheEnd() const
    {
        char byte = 0;
        return ::recv(server.get(), &byte, 1, 0) == 0;
    }

    bool peerSeesNoEnd() const
    {
        char byte = 0;
        return ::recv(server.get(), &byte, 1, MSG_DONTWAIT) == -1;
    }

    void peerSends(char byte) const { ASSERT_EQ(::send(server.get(), &byte, 1, 0), 1); }

    void waitForInput(short events = POLLIN) const
    {
        pollfd client_{client.get(), events, 0};
        ASSERT_EQ(::poll(&client_, 1, longMilliseconds), 1);
    }

    UniqueFd listener = listenOnLoopback();
    UniqueFd client = connectToLoopback(localPort(listener));
    UniqueFd server = acceptConnection(listener);
    ConnectionSocket socket;
};

} // namespace

TEST_F(SecondDescriptor, InterruptsAConnectionThatIsAttached)
{
    socket.expect(0);
    socket.attach(client.get());
    EXPECT_TRUE(peerSeesNoEnd());
    socket.interrupt();
    EXPECT_TRUE(peerSeesTheEnd());
}

TEST_F(SecondDescriptor, InterruptsAConnectionThatIsAttachedLater)
{
    socket.expect(0);
    socket.interrupt();
    EXPECT_TRUE(peerSeesNoEnd());
    socket.attach(client.get());
    EXPECT_TRUE(peerSeesTheEnd());
}

TEST_F(SecondDescriptor, InterruptsAnAttemptThatHasNotComeToExpectAConnectionYet)
{
    const auto before = socket.interruptCount();
    socket.interrupt();
    socket.expect(before);
    EXPECT_TRUE(socket.isInterrupted());
    socket.attach(client.get());
    EXPECT_TRUE(peerSeesTheEnd());
}

TEST_F(SecondDescriptor, InterruptFreesAThreadThatIsBlockedOnTheConnection)
{
    socket.expect(0);
    socket.attach(client.get());
    const Background blocked([this] {
        char byte = 0;
        EXPECT_EQ(::recv(client.get(), &byte, 1, 0), 0);
    });
    EXPECT_TRUE(blocked.isHeldUp());
    socket.interrupt();
    EXPECT_TRUE(blocked.ends());
}

TEST_F(SecondDescriptor, ANewAttemptIsNotInterruptedByAnEarlierInterrupt)
{
    socket.interrupt();
    socket.expect(socket.interruptCount());
    socket.attach(client.get());
    EXPECT_TRUE(peerSeesNoEnd());
    EXPECT_FALSE(socket.isAtEnd());
    EXPECT_FALSE(socket.isInterrupted());
}

TEST_F(SecondDescriptor, InterruptWithoutAConnectionDoesNothing)
{
    socket.interrupt();
    EXPECT_FALSE(socket.isAtEnd());
    EXPECT_TRUE(peerSeesNoEnd());
}

TEST_F(SecondDescriptor, KeepsTheConnectionOpenUntilItIsDetached)
{
    socket.attach(client.get());
    client = UniqueFd();
    EXPECT_TRUE(peerSeesNoEnd());
    socket.detach();
    EXPECT_TRUE(peerSeesTheEnd());
}

TEST_F(SecondDescriptor, DetachLeavesTheOriginalDescriptorOpen)
{
    socket.attach(client.get());
    socket.detach();
    EXPECT_TRUE(peerSeesNoEnd());
    client = UniqueFd();
    EXPECT_TRUE(peerSeesTheEnd());
}

TEST_F(SecondDescriptor, InterruptAfterDetachDoesNotReachTheConnection)
{
    socket.attach(client.get());
    socket.detach();
    socket.interrupt();
    EXPECT_TRUE(peerSeesNoEnd());
}

TEST_F(SecondDescriptor, LetsGoOfAnEarlierConnectionWhenANewOneIsExpected)
{
    socket.attach(client.get());
    client = UniqueFd();
    socket.expect(0);
    EXPECT_TRUE(peerSeesTheEnd());
}

TEST_F(SecondDescriptor, LetsGoAtItsDestruction)
{
    {
        ConnectionSocket shortLived;
        shortLived.attach(client.get());
        client = UniqueFd();
        EXPECT_TRUE(peerSeesNoEnd());
    }
    EXPECT_TRUE(peerSeesTheEnd());
}

TEST_F(SecondDescriptor, IgnoresANegativeDescriptor)
{
    socket.attach(-1);
    EXPECT_FALSE(socket.isAtEnd());
    socket.attach(client.get());
    socket.interrupt();
    EXPECT_TRUE(peerSeesTheEnd());
}

TEST_F(SecondDescriptor, KeepsTheFirstConnectionItIsGiven)
{
    const UniqueFd otherClient = connectToLoopback(localPort(listener));
    const UniqueFd otherServer = acceptConnection(listener);
    socket.attach(client.get());
    socket.attach(otherClient.get());
    socket.interrupt();
    EXPECT_TRUE(peerSeesTheEnd());
    char byte = 0;
    EXPECT_EQ(::recv(otherServer.get(), &byte, 1, MSG_DONTWAIT), -1);
}

TEST_F(SecondDescriptor, WithoutAConnectionIsNotAtItsEnd)
{
    EXPECT_FALSE(socket.isAtEnd());
    EXPECT_FALSE(socket.hasUnread());
}

TEST_F(SecondDescriptor, SeesThatThePeerHasClosed)
{
    socket.attach(client.get());
    EXPECT_FALSE(socket.isAtEnd());
    server = UniqueFd();
    waitForInput(POLLRDHUP);
    EXPECT_TRUE(socket.isAtEnd());
    EXPECT_FALSE(socket.hasUnread());
}

TEST_F(SecondDescriptor, SeesThatItWasShutDownHere)
{
    socket.attach(client.get());
    socket.interrupt();
    EXPECT_TRUE(socket.isAtEnd());
}

TEST_F(SecondDescriptor, SeesWhatHasArrivedWithoutTakingIt)
{
    socket.attach(client.get());
    EXPECT_FALSE(socket.hasUnread());
    peerSends('x');
    waitForInput();
    EXPECT_TRUE(socket.hasUnread());
    EXPECT_TRUE(socket.hasUnread());
    EXPECT_FALSE(socket.isAtEnd());
    char byte = 0;
    EXPECT_EQ(::recv(client.get(), &byte, 1, 0), 1);
    EXPECT_EQ(byte, 'x');
    EXPECT_FALSE(socket.hasUnread());
}

TEST_F(SecondDescriptor, SeesTheEndBehindWhatHasNotBeenReadYet)
{
    socket.attach(client.get());
    peerSends('x');
    server = UniqueFd();
    waitForInput(POLLRDHUP);
    EXPECT_TRUE(socket.isAtEnd());
    EXPECT_TRUE(socket.hasUnread());
}

TEST_F(SecondDescriptor, TellsTheErrorOfAConnectionThatWasResetOnce)
{
    socket.attach(client.get());
    const linger atOnce{1, 0};
    ASSERT_EQ(::setsockopt(server.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce), 0);
    server = UniqueFd();
    waitForInput(POLLRDHUP);
    EXPECT_TRUE(socket.isAtEnd());
    // Looking takes nothing away.
    EXPECT_FALSE(socket.hasUnread());
    EXPECT_EQ(socket.takeError(), ECONNRESET);
    EXPECT_EQ(socket.takeError(), 0);
}

TEST_F(SecondDescriptor, HasNoErrorWhenThePeerJustCloses)
{
    EXPECT_EQ(socket.takeError(), 0);
    socket.attach(client.get());
    server = UniqueFd();
    waitForInput(POLLRDHUP);
    EXPECT_EQ(socket.takeError(), 0);
}

TEST_F(SecondDescriptor, MayBeInterruptedWhileItIsAttached)
{
    for (int i = 0; i < 200; ++i) {
        const UniqueFd oneClient = connectToLoopback(localPort(listener));
        const UniqueFd oneServer = acceptConnection(listener);
        ConnectionSocket one;
        one.expect(0);
        {
            const Background attaching([&] { one.attach(oneClient.get()); });
            const Background interrupting([&] { one.interrupt(); });
        }
        // Whichever came first, the connection is shut down.
        char byte = 0;
        ASSERT_EQ(::recv(oneServer.get(), &byte, 1, 0), 0);
    }
}
