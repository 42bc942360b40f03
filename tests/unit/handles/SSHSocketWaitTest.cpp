#include "handles/SSHSocketWait.h"

#include "fakes/LibsshMock.h"
#include "handles/SSHHandleChannel.h"
#include "util/Background.h"

#include <FileSystem/HandleFatalError.h>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <functional>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using FileSystem::handle_fatal_error;
using Tarnis::SSHHandleChannel;
using Tarnis::SSHHandleSession;
using Tarnis::SSHSocketWait;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Le;
using ::testing::NiceMock;
using ::testing::Return;
using namespace std::chrono_literals;

namespace {

/// What poll was asked.
struct Poll
{
    int fd;
    short events;
    int timeout;
};

std::vector<Poll> polls;
std::function<void()> duringPoll;

std::vector<int> pollTimeouts()
{
    std::vector<int> timeouts;
    timeouts.reserve(polls.size());
    for (const Poll& poll : polls) {
        timeouts.push_back(poll.timeout);
    }
    return timeouts;
}

bool isOpen(int fd)
{
    return ::fcntl(fd, F_GETFD) >= 0;
}

class SocketWait : public ::testing::Test
{
protected:
    SocketWait()
    {
        polls.clear();
        duringPoll = nullptr;
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets.data()), 0);
        ON_CALL(libssh, ssh_get_fd(fakeSession())).WillByDefault(Return(sockets[0]));
    }

    ~SocketWait() override
    {
        ::close(sockets[0]);
        ::close(sockets[1]);
    }

    std::array<int, 2> sockets{};
    NiceMock<LibsshMock> libssh;
    SSHHandleSession session{fakeSession()};
    std::shared_ptr<SSHHandleChannel> channel = SSHHandleChannel::create(session);
    SSHSocketWait wait{SSHSocketWait::Clock::time_point::max()};
};

} // namespace

// The program's own poll(). Under another name here: GCC takes it that poll() never reads what it
// is given.
extern "C" int notingPoll(pollfd* fds, nfds_t count, int timeout) __asm__("poll");

/// Notes the call, then makes it.
extern "C" int notingPoll(pollfd* fds, nfds_t count, int timeout)
{
    polls.push_back({fds[0].fd, fds[0].events, timeout});
    if (duringPoll) {
        duringPoll();
    }
    static auto* const real = reinterpret_cast<decltype(&notingPoll)>(::dlsym(RTLD_NEXT, "poll"));
    return real(fds, count, timeout);
}

TEST_F(SocketWait, WaitsForInput)
{
    EXPECT_TRUE(wait.wait(*channel));
    ASSERT_EQ(polls.size(), 1U);
    EXPECT_EQ(polls[0].events, POLLIN);
}

TEST_F(SocketWait, WaitsForRoomTooWhileOutputIsQueued)
{
    EXPECT_CALL(libssh, ssh_get_poll_flags(fakeSession())).WillOnce(Return(SSH_WRITE_PENDING));
    EXPECT_TRUE(wait.wait(*channel));
    ASSERT_EQ(polls.size(), 1U);
    EXPECT_EQ(polls[0].events, POLLIN | POLLOUT);
}

TEST_F(SocketWait, UsesADescriptorOfItsOwnAndClosesIt)
{
    EXPECT_TRUE(wait.wait(*channel));
    ASSERT_EQ(polls.size(), 1U);
    EXPECT_NE(polls[0].fd, sockets[0]);
    EXPECT_FALSE(isOpen(polls[0].fd));
    EXPECT_TRUE(isOpen(sockets[0]));
}

TEST_F(SocketWait, GrowsWhileNothingHappens)
{
    for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(wait.wait(*channel));
    }
    EXPECT_THAT(pollTimeouts(), ElementsAre(1, 2, 4, 8, 10, 10));
}

TEST_F(SocketWait, IsShortAgainAfterProgress)
{
    EXPECT_TRUE(wait.wait(*channel));
    EXPECT_TRUE(wait.wait(*channel));
    wait.progressed();
    EXPECT_TRUE(wait.wait(*channel));
    EXPECT_THAT(pollTimeouts(), ElementsAre(1, 2, 1));
}

TEST_F(SocketWait, DoesNotGoPastTheDeadline)
{
    SSHSocketWait limited(SSHSocketWait::deadlineAfter(5ms));
    while (limited.wait(*channel)) {
    }
    EXPECT_THAT(pollTimeouts(), Each(Le(5)));
    EXPECT_FALSE(limited.wait(*channel));
}

TEST_F(SocketWait, DoesNotLookAtTheChannelOnceTheDeadlineIsOver)
{
    SSHSocketWait over(SSHSocketWait::Clock::now());
    EXPECT_CALL(libssh, ssh_get_fd).Times(0);
    EXPECT_FALSE(over.wait(*channel));
    EXPECT_TRUE(polls.empty());
}

TEST_F(SocketWait, PausesWithoutASocket)
{
    EXPECT_CALL(libssh, ssh_get_fd).WillOnce(Return(-1));
    EXPECT_TRUE(wait.wait(*channel));
    EXPECT_TRUE(polls.empty());
}

TEST_F(SocketWait, DoesNotHoldTheLockWhileItWaits)
{
    bool lockWasFree = false;
    duringPoll = [&] {
        const TarnisTest::Background other([this] { channel->getLock(); });
        lockWasFree = other.ends();
    };
    EXPECT_TRUE(wait.wait(*channel));
    EXPECT_TRUE(lockWasFree);
}

TEST_F(SocketWait, ThrowsOnAnInvalidChannel)
{
    channel->invalidate();
    EXPECT_THROW(wait.wait(*channel), handle_fatal_error);
}

TEST(SocketWaitDeadline, IsTheTimeoutFromNow)
{
    const auto before = SSHSocketWait::Clock::now();
    const auto deadline = SSHSocketWait::deadlineAfter(1h);
    EXPECT_GE(deadline, before + 1h);
    EXPECT_LE(deadline, SSHSocketWait::Clock::now() + 1h);
}

TEST(SocketWaitDeadline, OfAnEndlessTimeoutIsTheEndOfTime)
{
    EXPECT_EQ(SSHSocketWait::deadlineAfter(std::chrono::milliseconds::max()),
              SSHSocketWait::Clock::time_point::max());
}

TEST(SocketWaitDeadline, OfANegativeTimeoutIsNotInTheFuture)
{
    for (const auto timeout : {0ms, -1ms, std::chrono::milliseconds::min()}) {
        const auto deadline = SSHSocketWait::deadlineAfter(timeout);
        EXPECT_LE(deadline, SSHSocketWait::Clock::now());
    }
}
