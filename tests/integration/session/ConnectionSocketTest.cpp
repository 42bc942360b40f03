#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace TarnisTest {

namespace {

class SessionSocket : public OpenSshTest
{
protected:
    void SetUp() override
    {
        OpenSshTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        ASSERT_TRUE(session().connect()) << session().getLastError();
        const auto sockets = socketsConnectedTo(server().port());
        ASSERT_FALSE(sockets.empty());
        socket_ = sockets.front();
    }

    int option(int level, int name) const
    {
        int value = -1;
        socklen_t size = sizeof value;
        EXPECT_EQ(::getsockopt(socket_, level, name, &value, &size), 0);
        return value;
    }

    int descriptorFlags() const { return ::fcntl(socket_, F_GETFD); }

    int statusFlags() const { return ::fcntl(socket_, F_GETFL); }

private:
    int socket_ = -1;
};

TEST_F(SessionSocket, SendsWithoutWaitingForAcknowledgements)
{
    EXPECT_EQ(option(IPPROTO_TCP, TCP_NODELAY), 1);
}

TEST_F(SessionSocket, NoticesAVanishedPeerWithinTwoMinutes)
{
    constexpr int limitSeconds = 120;
    EXPECT_EQ(option(SOL_SOCKET, SO_KEEPALIVE), 1);
    const int idle = option(IPPROTO_TCP, TCP_KEEPIDLE);
    const int interval = option(IPPROTO_TCP, TCP_KEEPINTVL);
    const int probes = option(IPPROTO_TCP, TCP_KEEPCNT);
    EXPECT_GT(idle, 0);
    EXPECT_LE(idle + interval * probes, limitSeconds);

    const int unacknowledgedMilliseconds = option(IPPROTO_TCP, TCP_USER_TIMEOUT);
    EXPECT_GT(unacknowledgedMilliseconds, 0);
    EXPECT_LE(unacknowledgedMilliseconds, limitSeconds * 1000);
}

TEST_F(SessionSocket, NeverBlocksInASend)
{
    EXPECT_NE(statusFlags() & O_NONBLOCK, 0);
}

TEST_F(SessionSocket, IsNotInheritedByChildProcesses)
{
    for (const int descriptor : socketsConnectedTo(server().port())) {
        EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << descriptor;
    }
}

} // namespace

} // namespace TarnisTest
