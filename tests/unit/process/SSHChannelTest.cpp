#include "handles/SSHCallLimits.h"
#include "process/ChannelFixture.h"
#include "util/Background.h"
#include "util/RetryLimit.h"

#include <FileSystem/Failure.h>
#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHChannel.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/mman.h>

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::handle_fatal_error;
using Tarnis::SSHCallLimits;
using Tarnis::SSHChannel;
using Tarnis::SSHHandleChannel;
using TarnisTest::Background;
using TarnisTest::ChannelFixture;
using TarnisTest::fakeChannel;
using TarnisTest::fakeSession;
using TarnisTest::RetryLimit;
using ::testing::DoAll;
using ::testing::DoDefault;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::SaveArg;
using ::testing::StrEq;
using ::testing::Throw;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr std::uint32_t largestChunk = 0x7FFFFFFF;

const std::string textWithNul("cut\0off", 7);

class Channel : public ChannelFixture
{
protected:
    std::shared_ptr<SSHHandleChannel> handle = makeHandle();
    SSHChannel channel{std::shared_ptr<SSHHandleChannel>(handle)};
    std::string buffer = std::string(64, '.');
};

class OpenChannel : public Channel
{
protected:
    OpenChannel() { EXPECT_TRUE(channel.open()); }
};

/// Addresses that belong to nobody and hold no memory, for transfers that no memory is needed for.
class AddressSpace
{
public:
    explicit AddressSpace(std::size_t size)
        : size_(size)
        , start_(
              ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))
    {
        EXPECT_NE(start_, MAP_FAILED);
    }

    AddressSpace(const AddressSpace&) = delete;
    AddressSpace& operator=(const AddressSpace&) = delete;

    ~AddressSpace() { ::munmap(start_, size_); }

    char* at(std::size_t offset) const { return static_cast<char*>(start_) + offset; }

private:
    std::size_t size_;
    void* start_;
};

/// An open channel and a buffer of more than two chunks.
class HugeTransfer : public OpenChannel
{
protected:
    static constexpr std::size_t size = 2 * std::size_t{largestChunk} + 10;

    void expectRead(std::size_t offset, std::uint32_t chunk, int result)
    {
        EXPECT_CALL(libssh, ssh_channel_read_timeout(fakeChannel(), memory.at(offset), chunk, 0, 1))
            .WillOnce(Return(result));
    }

    void expectWrite(std::size_t offset, std::uint32_t chunk, int result)
    {
        EXPECT_CALL(libssh, ssh_channel_write(fakeChannel(), memory.at(offset), chunk))
            .WillOnce(Return(result));
    }

    const InSequence inThisOrder;
    AddressSpace memory{size};
};

/// A channel whose command ended without a status or a signal, and whose connection ends later.
class ClosedChannel : public Channel
{
protected:
    ClosedChannel()
    {
        EXPECT_CALL(libssh, ssh_add_channel_callbacks)
            .WillOnce(DoAll(SaveArg<1>(&server), Return(SSH_OK)));
        EXPECT_TRUE(channel.open());
    }

    void loseConnection()
    {
        ON_CALL(libssh, ssh_channel_is_open).WillByDefault(Return(0));
        ON_CALL(libssh, ssh_channel_is_closed).WillByDefault(Return(1));
        libssh.connected = 0;
    }

    /// Whether asking how the command ended leaves a failure.
    bool isCutOff()
    {
        static_cast<void>(channel.getExitCode());
        const bool isCodeCutOff = static_cast<bool>(Failure::last());
        EXPECT_FALSE(channel.getExitSignal().has_value());
        EXPECT_EQ(static_cast<bool>(Failure::last()), isCodeCutOff);
        return isCodeCutOff;
    }

    ssh_channel_callbacks server = nullptr;
};

} // namespace

TEST_F(ClosedChannel, IsCutOffByTheLossOfTheConnectionAlone)
{
    EXPECT_FALSE(isCutOff());
    loseConnection();
    EXPECT_TRUE(isCutOff());
    EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost);
}

TEST_F(ClosedChannel, IsNotCutOffWhereTheServerHadClosedItBefore)
{
    ASSERT_NE(server, nullptr);
    ASSERT_NE(server->channel_close_function, nullptr);
    server->channel_close_function(fakeSession(), fakeChannel(), server->userdata);
    loseConnection();
    EXPECT_FALSE(isCutOff());
}

TEST_F(ClosedChannel, IsNotCutOffWhereTheHostHadClosedItBefore)
{
    EXPECT_TRUE(channel.close());
    loseConnection();
    EXPECT_FALSE(isCutOff());
}

TEST_F(ChannelFixture, ChannelTakesItsHandleOver)
{
    auto handle = makeHandle();
    const SSHChannel channel(std::move(handle));
    // NOLINTNEXTLINE(bugprone-use-after-move): that it is empty now is the promise.
    EXPECT_EQ(handle, nullptr);
    EXPECT_TRUE(channel.isValid());
    EXPECT_FALSE(channel.isOpen());
}

TEST_F(ChannelFixture, ChannelWithoutAHandleIsInvalid)
{
    SSHChannel channel(nullptr);
    EXPECT_FALSE(channel.isValid());
    EXPECT_THROW(static_cast<void>(channel.open()), handle_fatal_error);
    EXPECT_THROW(channel.readAll(false), handle_fatal_error);
}

TEST_F(Channel, OpensWithOneCallInTheSessionsOwnMode)
{
    int mode = -1;
    EXPECT_CALL(libssh, ssh_channel_open_session(fakeChannel())).WillOnce([&](ssh_channel) {
        mode = libssh.blocking;
        return SSH_OK;
    });
    EXPECT_TRUE(channel.open());
    EXPECT_EQ(mode, 1);
}

TEST_F(Channel, IsNotOpenedByAnyOtherAnswerThanOk)
{
    EXPECT_CALL(libssh, ssh_channel_open_session)
        .WillOnce(Return(SSH_ERROR))
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce(Return(1));
    EXPECT_FALSE(channel.open());
    EXPECT_FALSE(channel.open());
    EXPECT_FALSE(channel.open());
}

TEST_F(Channel, CannotBeOpenedOnASessionThatIsNotConnected)
{
    // libssh would read through a null pointer.
    libssh.connected = 0;
    EXPECT_CALL(libssh, ssh_channel_open_session).Times(0);
    EXPECT_FALSE(channel.open());
}

TEST_F(Channel, IsOpenOnlyByTheAnswerOne)
{
    EXPECT_CALL(libssh, ssh_channel_is_open(fakeChannel()))
        .WillOnce(Return(1))
        .WillOnce(Return(0))
        .WillOnce(Return(2))
        .WillOnce(Return(-1))
        .WillRepeatedly(Return(0));
    EXPECT_TRUE(channel.isOpen());
    EXPECT_FALSE(channel.isOpen());
    EXPECT_FALSE(channel.isOpen());
    EXPECT_FALSE(channel.isOpen());
}

TEST_F(OpenChannel, ClosesWithOneCallInTheSessionsOwnMode)
{
    int mode = -1;
    EXPECT_CALL(libssh, ssh_channel_close(fakeChannel())).WillOnce([&](ssh_channel) {
        mode = libssh.blocking;
        libssh.channelOpen = 0;
        return SSH_OK;
    });
    EXPECT_TRUE(channel.close());
    EXPECT_EQ(mode, 1);
}

TEST_F(OpenChannel, IsNotClosedByAnyOtherAnswerThanOk)
{
    EXPECT_CALL(libssh, ssh_channel_close)
        .WillOnce(Return(SSH_ERROR))
        .WillOnce(Return(SSH_AGAIN))
        .WillRepeatedly(DoDefault());
    EXPECT_FALSE(channel.close());
    EXPECT_FALSE(channel.close());
    EXPECT_TRUE(channel.close());
}

TEST_F(Channel, ThatWasNeverOpenedCannotBeClosed)
{
    // libssh would close a channel of somebody else's.
    EXPECT_CALL(libssh, ssh_channel_close).Times(0);
    EXPECT_FALSE(channel.close());
}

TEST_F(OpenChannel, IsAtItsEndByAnyAnswerButZero)
{
    EXPECT_CALL(libssh, ssh_channel_is_eof(fakeChannel()))
        .WillOnce(Return(0))
        .WillOnce(Return(1))
        .WillOnce(Return(-1));
    EXPECT_FALSE(channel.isEOF());
    EXPECT_TRUE(channel.isEOF());
    EXPECT_TRUE(channel.isEOF());
}

TEST_F(OpenChannel, SendsAnEndOfFileWithoutBlocking)
{
    int mode = -1;
    EXPECT_CALL(libssh, ssh_channel_send_eof(fakeChannel()))
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce([&](ssh_channel) {
            mode = libssh.blocking;
            return SSH_OK;
        });
    EXPECT_TRUE(channel.sendEOF());
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_F(OpenChannel, TellsWhenAnEndOfFileCannotBeSent)
{
    const RetryLimit none(SSHCallLimits::Ticks::zero());
    EXPECT_CALL(libssh, ssh_channel_send_eof)
        .WillOnce(Return(SSH_ERROR))
        .WillRepeatedly(Return(SSH_AGAIN));
    EXPECT_FALSE(channel.sendEOF());
    EXPECT_FALSE(channel.sendEOF());
}

TEST_F(OpenChannel, SendsASignalByTheNameGiven)
{
    EXPECT_CALL(libssh, ssh_channel_request_send_signal(fakeChannel(), StrEq("INT")))
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce(Return(SSH_OK));
    EXPECT_CALL(libssh, ssh_channel_request_send_signal(fakeChannel(), StrEq("sigOdd")))
        .WillOnce(Return(SSH_ERROR));
    EXPECT_TRUE(channel.sendSignal("INT"));
    EXPECT_FALSE(channel.sendSignal("sigOdd"));
}

TEST_F(OpenChannel, SendsNoSignalWhoseNameWouldBeCut)
{
    EXPECT_CALL(libssh, ssh_channel_request_send_signal).Times(0);
    EXPECT_FALSE(channel.sendSignal(textWithNul));
}

TEST_F(Channel, SendsNothingUnlessItIsOpen)
{
    // libssh would send it to a channel of somebody else's.
    EXPECT_CALL(libssh, ssh_channel_send_eof).Times(0);
    EXPECT_CALL(libssh, ssh_channel_request_send_signal).Times(0);
    EXPECT_FALSE(channel.sendEOF());
    EXPECT_FALSE(channel.sendSignal("KILL"));
}

TEST_F(OpenChannel, HasNoExitCodeUntilOneIsReported)
{
    EXPECT_CALL(libssh, ssh_channel_get_exit_status(fakeChannel())).WillOnce(Return(-1));
    EXPECT_EQ(channel.getExitCode(), std::nullopt);
}

TEST_F(OpenChannel, ReportsTheExitCodeWhetherOpenOrClosed)
{
    EXPECT_CALL(libssh, ssh_channel_get_exit_status).WillRepeatedly(Return(3));
    EXPECT_EQ(channel.getExitCode(), 3);
    libssh.channelOpen = 0;
    EXPECT_EQ(channel.getExitCode(), 3);
}

TEST_F(OpenChannel, ReportsZeroAsAnExitCode)
{
    EXPECT_CALL(libssh, ssh_channel_get_exit_status).WillOnce(Return(0));
    EXPECT_EQ(channel.getExitCode(), 0);
}

TEST_F(OpenChannel, OnceClosedReportsTheMissingExitCodeAsItIs)
{
    libssh.channelOpen = 0;
    EXPECT_CALL(libssh, ssh_channel_get_exit_status).WillOnce(Return(-1));
    EXPECT_EQ(channel.getExitCode(), -1);
}

#if LIBSSH_VERSION_INT >= SSH_VERSION_INT(0, 11, 0)

// These versions answer so for as long as there is none, after the close too.
TEST_F(OpenChannel, HasNoExitCodeWhereLibsshSaysTryAgain)
{
    int mode = -1;
    EXPECT_CALL(libssh, ssh_channel_get_exit_status).WillOnce([&](ssh_channel) {
        mode = libssh.blocking;
        return SSH_AGAIN;
    });
    EXPECT_EQ(channel.getExitCode(), std::nullopt);
    EXPECT_EQ(mode, 0);
}

TEST_F(OpenChannel, OnceClosedHasLibsshsErrorAsExitCodeWhereItSaysTryAgain)
{
    libssh.channelOpen = 0;
    EXPECT_CALL(libssh, ssh_channel_get_exit_status).WillOnce(Return(SSH_AGAIN));
    EXPECT_EQ(channel.getExitCode(), SSH_ERROR);
}

#else

TEST_F(OpenChannel, AsksForTheExitCodeWithoutBlockingAndAgain)
{
    int mode = -1;
    EXPECT_CALL(libssh, ssh_channel_get_exit_status)
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce([&](ssh_channel) {
            mode = libssh.blocking;
            return 0;
        });
    EXPECT_EQ(channel.getExitCode(), 0);
    EXPECT_EQ(mode, 0);
}

TEST_F(OpenChannel, HasNoExitCodeWhenTheTimeIsOver)
{
    const RetryLimit none(SSHCallLimits::Ticks::zero());
    EXPECT_CALL(libssh, ssh_channel_get_exit_status).Times(2).WillRepeatedly(Return(SSH_AGAIN));
    EXPECT_EQ(channel.getExitCode(), std::nullopt);
}

#endif

TEST_F(OpenChannel, CountsWhatCanBeReadOnTheStreamAskedFor)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout(fakeChannel(), 1, 0)).WillOnce(Return(12));
    EXPECT_CALL(libssh, ssh_channel_poll_timeout(fakeChannel(), 1, 1)).WillOnce(Return(34));
    EXPECT_EQ(channel.bytesAvailable(false), 12U);
    EXPECT_EQ(channel.bytesAvailable(true), 34U);
}

TEST_F(OpenChannel, CountsNothingAtTheEndOrAfterAnError)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout)
        .WillOnce(Return(SSH_EOF))
        .WillOnce(Return(SSH_ERROR))
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce(Return(0));
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(channel.bytesAvailable(false), 0U);
    }
}

TEST_F(OpenChannel, ReadsTheStreamAskedForWaitingAMillisecond)
{
    EXPECT_CALL(libssh, ssh_channel_read_timeout(fakeChannel(), buffer.data(), 64, 1, 1))
        .WillOnce(Return(64));
    EXPECT_EQ(channel.read(buffer.data(), 64, true), 64U);
}

TEST_F(OpenChannel, ReadCountsWhatWasAskedForThoughLessArrived)
{
    EXPECT_CALL(libssh, ssh_channel_read_timeout).WillOnce(Return(10)).WillOnce(Return(0));
    EXPECT_EQ(channel.read(buffer.data(), 64, false), 64U);
    EXPECT_EQ(channel.read(buffer.data(), 64, false), 64U);
}

TEST_F(OpenChannel, ReadCountsNothingAfterAnError)
{
    EXPECT_CALL(libssh, ssh_channel_read_timeout).WillOnce(Return(SSH_ERROR));
    EXPECT_EQ(channel.read(buffer.data(), 64, false), 0U);
}

TEST_F(OpenChannel, ReadIsRepeatedWhileLibsshAsksForIt)
{
    int mode = -1;
    EXPECT_CALL(libssh, ssh_channel_read_timeout)
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce([&](auto...) {
            mode = libssh.blocking;
            return 64;
        });
    EXPECT_EQ(channel.read(buffer.data(), 64, false), 64U);
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_F(OpenChannel, ReadIsTriedOnceWhereLibsshSaysAgainForATimeThatIsUp)
{
    ON_CALL(libssh, ssh_version(SSH_VERSION_INT(0, 11, 0))).WillByDefault(Return("0.11.5"));
    EXPECT_CALL(libssh, ssh_channel_read_timeout).WillOnce(Return(SSH_AGAIN));
    EXPECT_EQ(channel.read(buffer.data(), 64, false), 64U);
}

TEST_F(OpenChannel, ReadOfNothingIsNothing)
{
    EXPECT_EQ(channel.read(buffer.data(), 0, false), 0U);
    EXPECT_EQ(channel.write(buffer.data(), 0), 0U);
}

TEST_F(HugeTransfer, ReadIsCutIntoChunks)
{
    expectRead(0, largestChunk, 0x7FFFFFFF);
    expectRead(largestChunk, largestChunk, 0x7FFFFFFF);
    expectRead(size - 10, 10, 10);
    EXPECT_EQ(channel.read(memory.at(0), size, false), size);
}

TEST_F(HugeTransfer, ReadEndsWithTheChunkThatIsShort)
{
    expectRead(0, largestChunk, 0x7FFFFFFF);
    expectRead(largestChunk, largestChunk, 5);
    EXPECT_EQ(channel.read(memory.at(0), size, false), 2 * std::size_t{largestChunk});
}

TEST_F(HugeTransfer, ReadEndsWithTheChunkThatIsEmpty)
{
    expectRead(0, largestChunk, 0);
    EXPECT_EQ(channel.read(memory.at(0), size, false), largestChunk);
}

TEST_F(HugeTransfer, ReadCountsTheChunksBeforeAnError)
{
    expectRead(0, largestChunk, 0x7FFFFFFF);
    expectRead(largestChunk, largestChunk, SSH_ERROR);
    EXPECT_EQ(channel.read(memory.at(0), size, false), largestChunk);
}

TEST_F(HugeTransfer, ReadOfExactlyOneChunkIsOneCall)
{
    expectRead(0, largestChunk, 0x7FFFFFFF);
    EXPECT_EQ(channel.read(memory.at(0), largestChunk, false), largestChunk);
}

TEST_F(HugeTransfer, WriteIsCutIntoChunks)
{
    expectWrite(0, largestChunk, 0x7FFFFFFF);
    expectWrite(largestChunk, largestChunk, 0x7FFFFFFF);
    expectWrite(size - 10, 10, 10);
    EXPECT_EQ(channel.write(memory.at(0), size), size);
}

TEST_F(HugeTransfer, WriteEndsWithTheChunkThatIsShort)
{
    expectWrite(0, largestChunk, 1);
    EXPECT_EQ(channel.write(memory.at(0), size), largestChunk);
}

TEST_F(HugeTransfer, WriteCountsTheChunksBeforeAnError)
{
    expectWrite(0, largestChunk, 0x7FFFFFFF);
    expectWrite(largestChunk, largestChunk, SSH_ERROR);
    EXPECT_EQ(channel.write(memory.at(0), size), largestChunk);
}

TEST_F(OpenChannel, WriteCountsWhatWasGivenThoughLessWasTaken)
{
    EXPECT_CALL(libssh, ssh_channel_write(fakeChannel(), buffer.data(), 64))
        .WillOnce(Return(10))
        .WillOnce(Return(0));
    EXPECT_EQ(channel.write(buffer.data(), 64), 64U);
    EXPECT_EQ(channel.write(buffer.data(), 64), 64U);
}

TEST_F(OpenChannel, WriteCountsNothingAfterAnError)
{
    EXPECT_CALL(libssh, ssh_channel_write).WillOnce(Return(SSH_ERROR));
    EXPECT_EQ(channel.write(buffer.data(), 64), 0U);
}

TEST_F(OpenChannel, WriteIsRepeatedWhileLibsshAsksForIt)
{
    EXPECT_CALL(libssh, ssh_channel_write).WillOnce(Return(SSH_AGAIN)).WillOnce(Return(64));
    EXPECT_EQ(channel.write(buffer.data(), 64), 64U);
}

TEST_F(OpenChannel, ReadAllReturnsWhatCanBeReadAtOnce)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout(fakeChannel(), 1, 1)).WillOnce(Return(5));
    EXPECT_CALL(libssh, ssh_channel_read_timeout(fakeChannel(), _, 5, 1, 1))
        .WillOnce([](ssh_channel, void* to, std::uint32_t, int, int) {
            const std::string text("a\0b\nc", 5);
            std::copy(text.begin(), text.end(), static_cast<char*>(to));
            return 5;
        });
    EXPECT_EQ(channel.readAll(true), std::string("a\0b\nc", 5));
}

TEST_F(OpenChannel, ReadAllReadsNothingWhenNothingIsThere)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).WillOnce(Return(0)).WillOnce(Return(SSH_EOF));
    EXPECT_CALL(libssh, ssh_channel_read_timeout).Times(0);
    EXPECT_EQ(channel.readAll(false), "");
    EXPECT_EQ(channel.readAll(false), "");
}

TEST_F(OpenChannel, ReadAllFillsUpWithZeroBytesWhatDidNotArrive)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).WillOnce(Return(4));
    EXPECT_CALL(libssh, ssh_channel_read_timeout)
        .WillOnce([](ssh_channel, void* to, std::uint32_t, int, int) {
            *static_cast<char*>(to) = 'x';
            return 1;
        });
    EXPECT_EQ(channel.readAll(false), std::string("x\0\0\0", 4));
}

TEST_F(OpenChannel, ReadAllReturnsNothingAfterAnError)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).WillOnce(Return(4));
    EXPECT_CALL(libssh, ssh_channel_read_timeout).WillOnce(Return(SSH_ERROR));
    EXPECT_EQ(channel.readAll(false), "");
}

TEST_F(OpenChannel, ThrowsFromEveryOperationOnceItsSessionIsGone)
{
    session.deleteMe();
    EXPECT_FALSE(channel.isValid());
    char* const to = buffer.data();
    const auto noTime = std::chrono::milliseconds::zero();
    const std::vector<std::function<void()>> operations{
        [&] { static_cast<void>(channel.open()); },
        [&] { channel.isOpen(); },
        [&] { channel.close(); },
        [&] { channel.isEOF(); },
        [&] { channel.sendEOF(); },
        [&] { channel.sendSignal("KILL"); },
        [&] { channel.getExitCode(); },
        [&] { channel.bytesAvailable(false); },
        [&] { channel.read(to, 1, false); },
        [&] { channel.write(to, 1); },
        [&] { channel.readAll(false); },
        [&] { static_cast<void>(channel.readSome(to, 1, false, noTime)); },
        [&] { static_cast<void>(channel.writeSome(to, 1, noTime)); },
    };
    for (const auto& operation : operations) {
        EXPECT_THROW(operation(), handle_fatal_error);
    }
}

TEST_F(OpenChannel, HoldsTheSessionsLockAcrossTheTriesOfOneCall)
{
    std::unique_ptr<Background> other;
    bool heldUp = false;
    EXPECT_CALL(libssh, ssh_channel_send_eof)
        .WillOnce([&](ssh_channel) {
            other = std::make_unique<Background>([this] { session.getLock(); });
            return SSH_AGAIN;
        })
        .WillOnce([&](ssh_channel) {
            heldUp = other->isHeldUp();
            return SSH_OK;
        });
    EXPECT_TRUE(channel.sendEOF());
    EXPECT_TRUE(heldUp);
    EXPECT_TRUE(other->ends());
}

TEST_F(ChannelFixture, DestroyedWhileOpenChannelIsClosedWithoutBlockingThenFreed)
{
    int mode = -1;
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_channel_close(fakeChannel())).WillOnce([&](ssh_channel) {
        mode = libssh.blocking;
        libssh.channelOpen = 0;
        return SSH_OK;
    });
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
    EXPECT_CALL(libssh, ssh_channel_send_eof).Times(0);
    {
        SSHChannel channel(makeHandle());
        ASSERT_TRUE(channel.open());
    }
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_F(ChannelFixture, DestroyedUnopenedChannelIsOnlyFreed)
{
    EXPECT_CALL(libssh, ssh_channel_close).Times(0);
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel())).Times(1);
    const SSHChannel channel(makeHandle());
}

TEST_F(ChannelFixture, DestroyedChannelLeavesTheTree)
{
    {
        SSHChannel channel(makeHandle());
        ASSERT_TRUE(channel.open());
        EXPECT_TRUE(session.mayHaveUnreadOutput());
    }
    EXPECT_FALSE(session.mayHaveUnreadOutput());
}

TEST_F(ChannelFixture, DestructionLetsNoExceptionOut)
{
    EXPECT_CALL(libssh, ssh_channel_close).WillRepeatedly(Throw(std::runtime_error("trouble")));
    EXPECT_NO_THROW({
        SSHChannel channel(makeHandle());
        static_cast<void>(channel.open());
    });
    libssh.channelOpen = 0;
}

TEST_F(ChannelFixture, DestructionAfterTheSessionCallsNothing)
{
    auto channel = std::make_unique<SSHChannel>(makeHandle());
    session.deleteMe();
    EXPECT_CALL(libssh, ssh_channel_is_open).Times(0);
    EXPECT_CALL(libssh, ssh_channel_free).Times(0);
    EXPECT_NO_THROW(channel.reset());
}
