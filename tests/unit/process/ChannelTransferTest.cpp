// SSHChannel::readSome and SSHChannel::writeSome.

#include "process/ChannelFixture.h"
#include "util/Background.h"

#include <Tarnis/SSHChannel.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <ostream>
#include <string>

using Tarnis::SSHChannel;
using Tarnis::SSHChannelTransfer;
using TarnisTest::Background;
using TarnisTest::ChannelFixture;
using TarnisTest::fakeChannel;
using TarnisTest::fakeSession;
using ::testing::Return;
using namespace std::chrono_literals;

using Status = SSHChannelTransfer::Status;

namespace Tarnis {

void PrintTo(const SSHChannelTransfer& transfer, std::ostream* out)
{
    *out << "status " << static_cast<int>(transfer.status) << ", count " << transfer.count;
}

bool operator==(const SSHChannelTransfer& one, const SSHChannelTransfer& other)
{
    return one.status == other.status && one.count == other.count;
}

} // namespace Tarnis

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr SSHChannelTransfer moved(std::size_t count)
{
    return {Status::Transferred, count};
}

constexpr SSHChannelTransfer nothing(Status why)
{
    return {why, 0};
}

class Transfer : public ChannelFixture
{
protected:
    Transfer() { EXPECT_TRUE(channel.open()); }

    SSHChannelTransfer readNow(bool isStderr = false)
    {
        return channel.readSome(buffer.data(), buffer.size(), isStderr, 0ms);
    }

    SSHChannelTransfer writeNow() { return channel.writeSome(buffer.data(), buffer.size(), 0ms); }

    void readAnswers(int answer)
    {
        EXPECT_CALL(libssh, ssh_channel_read_timeout).WillRepeatedly(Return(answer));
    }

    void pollAnswers(int answer)
    {
        EXPECT_CALL(libssh, ssh_channel_poll).WillRepeatedly(Return(answer));
    }

    void writeAnswers(int answer)
    {
        EXPECT_CALL(libssh, ssh_channel_write).WillRepeatedly(Return(answer));
    }

    std::string buffer = std::string(64, '.');
    SSHChannel channel{makeHandle()};
};

} // namespace

TEST_F(Transfer, OfAReadCountsWhatReallyArrived)
{
    EXPECT_CALL(libssh, ssh_channel_read_timeout(fakeChannel(), buffer.data(), 64, 1, 0))
        .WillOnce(Return(10));
    EXPECT_EQ(readNow(true), moved(10));
}

TEST_F(Transfer, OfAReadRunsWithoutBlocking)
{
    int mode = -1;
    EXPECT_CALL(libssh, ssh_channel_read_timeout).WillOnce([&](auto...) {
        mode = libssh.blocking;
        return 1;
    });
    readNow();
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_F(Transfer, OfAReadTimesOutWhenNothingIsThere)
{
    readAnswers(0);
    EXPECT_EQ(readNow(), nothing(Status::TimedOut));
}

TEST_F(Transfer, OfAReadTimesOutOnLibsshsNewerAnswerToo)
{
    readAnswers(SSH_AGAIN);
    EXPECT_EQ(readNow(), nothing(Status::TimedOut));
}

TEST_F(Transfer, OfAReadKnowsTheEndOfTheStream)
{
    pollAnswers(SSH_EOF);
    for (const int answer : {0, SSH_ERROR, SSH_AGAIN, SSH_EOF}) {
        readAnswers(answer);
        EXPECT_EQ(readNow(), nothing(Status::EndOfStream)) << answer;
    }
}

TEST_F(Transfer, OfAReadLooksForTheEndOfItsOwnStream)
{
    readAnswers(0);
    EXPECT_CALL(libssh, ssh_channel_poll(fakeChannel(), 0)).WillOnce(Return(SSH_EOF));
    EXPECT_CALL(libssh, ssh_channel_poll(fakeChannel(), 1)).WillOnce(Return(0));
    EXPECT_EQ(readNow(false), nothing(Status::EndOfStream));
    EXPECT_EQ(readNow(true), nothing(Status::TimedOut));
}

TEST_F(Transfer, OfAReadTellsAnErrorFromTheEnd)
{
    readAnswers(SSH_ERROR);
    EXPECT_EQ(readNow(), nothing(Status::Error));
    readAnswers(0);
    pollAnswers(SSH_ERROR);
    EXPECT_EQ(readNow(), nothing(Status::Error));
}

TEST_F(Transfer, OfAReadOnAChannelThatIsGoneIsAnError)
{
    readAnswers(0);
    libssh.channelOpen = 0;
    EXPECT_EQ(readNow(), nothing(Status::Error));
}

TEST_F(Transfer, OfAReadWaitsForTheFirstByte)
{
    EXPECT_CALL(libssh, ssh_channel_read_timeout)
        .WillOnce(Return(0))
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce(Return(0))
        .WillOnce(Return(3));
    EXPECT_EQ(channel.readSome(buffer.data(), buffer.size(), false, 1h), moved(3));
}

TEST_F(Transfer, OfAReadEndsItsWaitAtAnyTimeout)
{
    readAnswers(0);
    for (const auto timeout : {5ms, 0ms, -5ms, std::chrono::milliseconds::min()}) {
        EXPECT_EQ(channel.readSome(buffer.data(), buffer.size(), false, timeout),
                  nothing(Status::TimedOut));
    }
}

TEST_F(Transfer, OfAReadWaitsWithoutTheLock)
{
    std::unique_ptr<Background> other;
    std::atomic<bool> otherEnded{false};
    EXPECT_CALL(libssh, ssh_channel_read_timeout)
        .WillOnce([&](auto...) {
            other = std::make_unique<Background>([&] {
                session.getLock();
                otherEnded = true;
            });
            return 0;
        })
        .WillRepeatedly([&](auto...) { return otherEnded ? 1 : 0; });
    // A read that kept the lock would never end.
    EXPECT_EQ(channel.readSome(buffer.data(), buffer.size(), false, 1h), moved(1));
}

TEST_F(Transfer, OfAHugeReadAsksForNoMoreThanAWindowShouldGrowTo)
{
    EXPECT_CALL(libssh, ssh_channel_read_timeout(_, _, ::testing::Le(64U * 1024 * 1024), _, _))
        .WillOnce(Return(1));
    EXPECT_EQ(channel.readSome(buffer.data(), std::size_t{1} << 40U, false, 0ms), moved(1));
}

TEST_F(Transfer, OfAWriteCountsWhatWasReallyTaken)
{
    EXPECT_CALL(libssh, ssh_channel_write(fakeChannel(), buffer.data(), 64)).WillOnce(Return(10));
    EXPECT_EQ(writeNow(), moved(10));
}

TEST_F(Transfer, OfAWriteRunsWithoutBlocking)
{
    int mode = -1;
    EXPECT_CALL(libssh, ssh_channel_write).WillOnce([&](auto...) {
        mode = libssh.blocking;
        return 1;
    });
    writeNow();
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_F(Transfer, OfAWriteTimesOutWhenThePeersWindowIsFull)
{
    writeAnswers(0);
    EXPECT_EQ(writeNow(), nothing(Status::TimedOut));
}

TEST_F(Transfer, OfAWriteOffersNothingWhileEarlierOutputIsQueued)
{
    EXPECT_CALL(libssh, ssh_blocking_flush(fakeSession(), 0)).WillOnce(Return(SSH_AGAIN));
    EXPECT_CALL(libssh, ssh_channel_write).Times(0);
    EXPECT_EQ(writeNow(), nothing(Status::TimedOut));
}

TEST_F(Transfer, OfAWriteThatAnOpenChannelRefusesIsTheEnd)
{
    writeAnswers(SSH_ERROR);
    EXPECT_EQ(writeNow(), nothing(Status::EndOfStream));
}

TEST_F(Transfer, OfAWriteOnALostConnectionIsAnError)
{
    writeAnswers(SSH_ERROR);
    libssh.connected = 0;
    EXPECT_EQ(writeNow(), nothing(Status::Error));
}

TEST_F(Transfer, OfAWriteToAClosedChannelIsTheEndOnlyWhileOutputIsUnread)
{
    writeAnswers(SSH_ERROR);
    libssh.channelOpen = 0;
    pollAnswers(5);
    EXPECT_EQ(writeNow(), nothing(Status::EndOfStream));
    pollAnswers(SSH_EOF);
    EXPECT_EQ(writeNow(), nothing(Status::EndOfStream));
    pollAnswers(0);
    EXPECT_EQ(writeNow(), nothing(Status::Error));
}

TEST_F(Transfer, OfAWriteWaitsForRoom)
{
    EXPECT_CALL(libssh, ssh_channel_write)
        .WillOnce(Return(0))
        .WillOnce(Return(0))
        .WillOnce(Return(7));
    EXPECT_EQ(channel.writeSome(buffer.data(), buffer.size(), 1h), moved(7));
}

TEST_F(Transfer, OfAHugeWriteOffersNoMoreThanShouldBeQueued)
{
    EXPECT_CALL(libssh, ssh_channel_write(_, _, ::testing::Le(256U * 1024))).WillOnce(Return(1));
    EXPECT_EQ(channel.writeSome(buffer.data(), std::size_t{1} << 40U, 0ms), moved(1));
}
