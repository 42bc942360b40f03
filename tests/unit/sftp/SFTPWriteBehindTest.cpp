#include "sftp/ReplyFixture.h"
#include "sftp/SFTPBulkTransfer.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/HandleFatalError.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

using FileSystem::handle_fatal_error;
using FileSystem::StorageSystemFileOpenModeFlag;
using Tarnis::SFTPBulkTransfer;
using TarnisTest::number;
using TarnisTest::ReplyFixture;
using TarnisTest::statusPacket;
using TarnisTest::text;
using ::testing::Return;
using ::testing::StrEq;

namespace {

constexpr std::size_t largest = 256'000;
constexpr std::size_t ordinary = 32'768;
constexpr char extendedPacket = static_cast<char>(200);
constexpr std::uint8_t extendedReplyPacket = 201;

std::string longNumber(std::uint64_t value)
{
    return number(static_cast<std::uint32_t>(value >> 32U)) +
           number(static_cast<std::uint32_t>(value));
}

/// A server with one file, which takes write requests.
class SftpWriteBehind : public ReplyFixture
{
protected:
    SftpWriteBehind()
        : opened(openFile())
        , transfer(opened, "/file", StorageSystemFileOpenModeFlag::Write)
    {
        ON_CALL(libssh, sftp_extension_supported).WillByDefault(Return(0));
        ON_CALL(libssh, ssh_string_len).WillByDefault(Return(handleText.size()));
        ON_CALL(libssh, ssh_string_data).WillByDefault(Return(handleText.data()));
        ON_CALL(libssh, sftp_async_read_begin).WillByDefault([this](sftp_file at, std::uint32_t) {
            const std::uint32_t id = ++at->sftp->id_counter;
            if (at->sftp->channel == nullptr) {
                return -1;
            }
            underWay.insert(id);
            reads.insert(id);
            return static_cast<int>(id);
        });
        ON_CALL(libssh, ssh_channel_write)
            .WillByDefault([this](ssh_channel, const void* packet, std::uint32_t size) {
                return take(static_cast<const char*>(packet), size);
            });
        ON_CALL(libssh, sftp_async_read)
            .WillByDefault([this](sftp_file at, void*, std::uint32_t, std::uint32_t id) {
                answerOldest();
                if (at->nonblocking != 0) {
                    return SSH_AGAIN;
                }
                const int result = collect(id);
                recorded.push_back(at->sftp->errnum);
                return result;
            });
        ON_CALL(libssh, ssh_channel_poll_timeout).WillByDefault([this](auto...) {
            return underWay.empty() ? SSH_ERROR : 1;
        });
        ON_CALL(libssh, sftp_write)
            .WillByDefault([this](sftp_file at, const void* data, std::size_t size) {
                ++plainWrites;
                const std::size_t taken = std::min(size, plainCap);
                store(at->offset, static_cast<const char*>(data), taken);
                at->offset += taken;
                return static_cast<ssize_t>(taken);
            });
    }

    void givesNoIdentifiers() { ON_CALL(libssh, sftp_async_read_begin).WillByDefault(Return(-1)); }

    int take(const char* packet, std::uint32_t size)
    {
        const auto numberAt = [packet](std::size_t at) {
            std::uint64_t value = 0;
            for (std::size_t index = 0; index < 4; ++index) {
                value = value << 8U | static_cast<unsigned char>(packet[at + index]);
            }
            return value;
        };
        const std::size_t fields = 4 + 1 + 4 + 4 + handleText.size();
        const auto id = static_cast<std::uint32_t>(numberAt(5));
        underWay.insert(id);
        if (packet[4] == extendedPacket) {
            questions.insert(id);
            return static_cast<int>(size);
        }
        mostUnderWay = std::max(mostUnderWay, underWay.size());
        const std::uint64_t length = numberAt(fields + 8);
        longest = std::max<std::size_t>(longest, length);
        lengths.push_back(length);
        if (length > serverTakes) {
            tooLong.insert(id);
            return static_cast<int>(size);
        }
        store(numberAt(fields) << 32U | numberAt(fields + 4), packet + fields + 12, length);
        return static_cast<int>(size);
    }

    /// Nothing but writes is allowed.
    std::uint32_t statusFor(std::uint32_t id)
    {
        return reads.erase(id) == 1 || ++answers == failsAt ? SSH_FX_FAILURE : SSH_FX_OK;
    }

    void answerOldest()
    {
        ASSERT_FALSE(underWay.empty());
        const std::uint32_t id = *underWay.begin();
        underWay.erase(id);
        if (questions.erase(id) == 1) {
            arrived(id, extendedReplyPacket,
                    longNumber(1) + longNumber(2) + longNumber(serverSays) + longNumber(4));
        } else if (tooLong.erase(id) == 1) {
            arrived(id, statusPacket, number(SSH_FX_FAILURE) + text("too long"));
        } else {
            arrived(id, statusPacket, number(statusFor(id)));
        }
    }

    void store(std::uint64_t offset, const char* data, std::size_t size)
    {
        stored.resize(std::max<std::size_t>(stored.size(), offset + size));
        stored.replace(offset, size, data, size);
    }

    bool writeAll(const std::string& content)
    {
        return transfer.start(0) && transfer.write(content.data(), content.size()) &&
               transfer.finish();
    }

    static std::string bytes(std::size_t size)
    {
        std::string result(size, '\0');
        for (std::size_t index = 0; index < size; ++index) {
            result[index] = static_cast<char>(index * 7 + index / 251);
        }
        return result;
    }

    std::string handleText{"handle"};
    std::string stored;
    std::set<std::uint32_t> underWay;
    std::set<std::uint32_t> reads;
    std::set<std::uint32_t> questions;
    std::set<std::uint32_t> tooLong;
    std::vector<std::size_t> lengths;
    std::size_t serverTakes = ~std::size_t{0};
    std::uint64_t serverSays = 0;
    /// The statuses that libssh made texts of.
    std::vector<int> recorded;
    std::size_t mostUnderWay = 0;
    std::size_t longest = 0;
    std::size_t plainCap = ~std::size_t{0};
    int plainWrites = 0;
    int answers = 0;
    int failsAt = 0;
    std::shared_ptr<Tarnis::SSHHandleSFTPSessionFile> opened;
    SFTPBulkTransfer transfer;
};

} // namespace

TEST_F(SftpWriteBehind, SendsEveryByteInCarefulPiecesSeveralAtATime)
{
    const std::string content = bytes(9'000'001);
    EXPECT_TRUE(writeAll(content));
    EXPECT_EQ(stored, content);
    EXPECT_EQ(longest, largest);
    EXPECT_EQ(mostUnderWay, 16U);
    EXPECT_TRUE(underWay.empty());
    EXPECT_EQ(plainWrites, 0);
    EXPECT_TRUE(recorded.empty());
    EXPECT_EQ(sftp.queue, nullptr);
}

TEST_F(SftpWriteBehind, StartsWhereItIsTold)
{
    EXPECT_TRUE(transfer.start(5));
    EXPECT_TRUE(transfer.write("67", 2));
    EXPECT_TRUE(transfer.write("8", 1));
    EXPECT_TRUE(transfer.finish());
    EXPECT_EQ(stored, std::string(5, '\0') + "678");
}

TEST_F(SftpWriteBehind, WaitsForTheFirstAnswerBeforeItSendsMore)
{
    EXPECT_TRUE(transfer.start(0));
    EXPECT_TRUE(transfer.write("first", 5));
    EXPECT_TRUE(underWay.empty());
    EXPECT_TRUE(transfer.write("second", 6));
    EXPECT_EQ(underWay.size(), 1U);
}

TEST_F(SftpWriteBehind, TellsALateFailure)
{
    const std::string content = bytes(3'000'000);
    failsAt = 12;
    EXPECT_TRUE(transfer.start(0));
    EXPECT_TRUE(transfer.write(content.data(), content.size()));
    EXPECT_FALSE(transfer.finish());
    EXPECT_TRUE(underWay.empty());
    EXPECT_EQ(recorded, std::vector<int>{SSH_FX_FAILURE});
    EXPECT_EQ(sftp.queue, nullptr);
}

TEST_F(SftpWriteBehind, StopsSendingAfterAFailure)
{
    const std::string content = bytes(9'000'000);
    failsAt = 3;
    EXPECT_FALSE(writeAll(content));
    EXPECT_LT(stored.size(), content.size());
    EXPECT_FALSE(transfer.write("more", 4));
    EXPECT_FALSE(transfer.finish());
    EXPECT_TRUE(underWay.empty());
    failsAt = 0;
    EXPECT_TRUE(writeAll("again"));
}

TEST_F(SftpWriteBehind, WritesOneByOneWhereLibsshDropsTheFirstAnswer)
{
    plainCap = 100'000;
    EXPECT_CALL(libssh, sftp_async_read).WillOnce(Return(SSH_ERROR));
    const std::string content = bytes(1'000'000);
    EXPECT_TRUE(writeAll(content));
    EXPECT_EQ(stored, content);
    EXPECT_GT(plainWrites, 9);
    EXPECT_EQ(handle->getBulkWriting(), Tarnis::SSHHandleSFTPSession::BulkWriting::OneByOne);
}

TEST_F(SftpWriteBehind, WritesOneByOneWithALibsshThatGivesNoIdentifiers)
{
    givesNoIdentifiers();
    EXPECT_CALL(libssh, ssh_channel_write).Times(0);
    const std::string content = bytes(600'000);
    EXPECT_TRUE(writeAll(content));
    EXPECT_EQ(stored, content);
    EXPECT_EQ(plainWrites, 3);
}

TEST_F(SftpWriteBehind, FailsWhereTheFirstAnswerAndAPlainWriteFail)
{
    EXPECT_CALL(libssh, sftp_async_read).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, sftp_write).WillOnce(Return(-1));
    EXPECT_FALSE(writeAll("data"));
    EXPECT_EQ(handle->getBulkWriting(), Tarnis::SSHHandleSFTPSession::BulkWriting::Unknown);
}

TEST_F(SftpWriteBehind, FailsAtOnceWhereTheServerRefusesWhatEveryServerTakes)
{
    failsAt = 1;
    EXPECT_FALSE(writeAll("data"));
    EXPECT_EQ(answers, 1);
    EXPECT_EQ(plainWrites, 0);
}

TEST_F(SftpWriteBehind, DoesNotWriteForeverWhereNothingIsTaken)
{
    givesNoIdentifiers();
    plainCap = 0;
    EXPECT_FALSE(writeAll("data"));
}

TEST_F(SftpWriteBehind, IsNotDoneForAFileThatIsAppendedTo)
{
    SFTPBulkTransfer appending(opened, "/file",
                               StorageSystemFileOpenModeFlag::Write |
                                   StorageSystemFileOpenModeFlag::Append);
    EXPECT_FALSE(appending.start(0));
}

TEST_F(SftpWriteBehind, IsCountedWhileItLasts)
{
    EXPECT_FALSE(handle->hasBulkWriters());
    EXPECT_TRUE(transfer.start(0));
    EXPECT_TRUE(handle->hasBulkWriters());
    EXPECT_TRUE(transfer.finish());
    EXPECT_FALSE(handle->hasBulkWriters());
    SFTPBulkTransfer reading(opened, "/file", StorageSystemFileOpenModeFlag::Read);
    EXPECT_TRUE(reading.start(0));
    EXPECT_FALSE(handle->hasBulkWriters());
}

TEST_F(SftpWriteBehind, CannotStartOnceTheSessionHasEnded)
{
    EXPECT_TRUE(transfer.start(0));
    session.retireChildren();
    EXPECT_THROW(transfer.write("x", 1), handle_fatal_error);
    EXPECT_FALSE(transfer.start(0));
}

TEST_F(SftpWriteBehind, CollectsWhatIsUnderWayWhenItGoes)
{
    {
        SFTPBulkTransfer leaving(opened, "/file", StorageSystemFileOpenModeFlag::Write);
        const std::string content = bytes(600'000);
        EXPECT_TRUE(leaving.start(0));
        EXPECT_TRUE(leaving.write(content.data(), content.size()));
        EXPECT_FALSE(underWay.empty());
    }
    EXPECT_TRUE(underWay.empty());
    EXPECT_FALSE(handle->hasBulkWriters());
}

TEST_F(SftpWriteBehind, TriesASmallerFirstWriteWhereALargeOneIsRefusedAndRemembersIt)
{
    serverTakes = ordinary;
    const std::string content = bytes(4'000'000);
    EXPECT_TRUE(writeAll(content));
    EXPECT_EQ(stored, content);
    EXPECT_EQ(longest, largest);
    lengths.clear();
    SFTPBulkTransfer next(opened, "/file", StorageSystemFileOpenModeFlag::Write);
    EXPECT_TRUE(next.start(0));
    EXPECT_TRUE(next.write(content.data(), content.size()));
    EXPECT_TRUE(next.finish());
    EXPECT_EQ(*std::max_element(lengths.begin(), lengths.end()), ordinary);
    EXPECT_GT(mostUnderWay, 16U);
}

TEST_F(SftpWriteBehind, ForgetsARefusalThatWasNotForTheSize)
{
    serverTakes = ordinary;
    failsAt = 2;
    const std::string content = bytes(4'000'000);
    EXPECT_FALSE(writeAll(content));
    EXPECT_EQ(lengths.front(), largest);
    serverTakes = ~std::size_t{0};
    failsAt = 0;
    longest = 0;
    EXPECT_TRUE(writeAll(content));
    EXPECT_EQ(stored, content);
    EXPECT_EQ(longest, largest);
}

TEST_F(SftpWriteBehind, TriesTheFirstLargeWriteAloneAlsoAfterSmallOnes)
{
    serverTakes = ordinary;
    EXPECT_TRUE(writeAll("small"));
    const std::string content = bytes(1'000'000);
    EXPECT_TRUE(writeAll(content));
    EXPECT_EQ(stored, content);
}

TEST_F(SftpWriteBehind, TellsTheRefusalOfTheSmallerWrite)
{
    serverTakes = 0;
    FileSystem::FailureScope scope("copy");
    EXPECT_FALSE(scope.result(writeAll(bytes(1'000'000))));
    EXPECT_EQ(lengths, (std::vector<std::size_t>{largest, ordinary}));
    const auto failure = FileSystem::Failure::last();
    EXPECT_EQ(failure.source(), FileSystem::FailureSource::Server);
    EXPECT_EQ(failure.number(), SSH_FX_FAILURE);
    EXPECT_EQ(failure.text(), "too long");
    EXPECT_EQ(failure.entry(), "/file");
}

TEST_F(SftpWriteBehind, SendsNoMoreAtATimeThanTheServerSays)
{
    EXPECT_CALL(libssh, sftp_extension_supported(&sftp, StrEq("limits@openssh.com"), StrEq("1")))
        .WillOnce(Return(1));
    serverSays = 100'000;
    const std::string content = bytes(1'000'000);
    EXPECT_TRUE(writeAll(content));
    EXPECT_EQ(stored, content);
    EXPECT_EQ(longest, 100'000U);
    // It is asked once.
    EXPECT_TRUE(writeAll(content));
}

TEST_F(SftpWriteBehind, TakesALimitOfZeroForNone)
{
    EXPECT_CALL(libssh, sftp_extension_supported).WillOnce(Return(1));
    serverSays = 0;
    const std::string content = bytes(1'000'000);
    EXPECT_TRUE(writeAll(content));
    EXPECT_EQ(stored, content);
    EXPECT_EQ(longest, largest);
}

TEST_F(SftpWriteBehind, WaitsForRoomWithoutTheLockAndTakesRepliesInMeanwhile)
{
    EXPECT_TRUE(writeAll("first"));
    std::atomic<std::uint32_t> room{0};
    std::atomic<int> looks{0};
    ON_CALL(libssh, ssh_channel_window_size).WillByDefault([&](ssh_channel) -> std::uint32_t {
        ++looks;
        return room;
    });
    // Somebody else's reply, which the server has to get rid of before it reads on.
    const std::uint32_t others = ++sftp.id_counter;
    underWay.insert(others);
    ON_CALL(libssh, ssh_channel_poll).WillByDefault([this](auto...) {
        return underWay.empty() ? 0 : 1;
    });
    auto writing = std::async(std::launch::async, [this] {
        return transfer.start(5) && transfer.write(" more", 5) && transfer.finish();
    });
    while (looks < 10) {
        std::this_thread::yield();
    }
    {
        const auto lock = opened->getLock();
        EXPECT_TRUE(isQueued(others));
        EXPECT_EQ(stored, "first");
        room = 1U << 20U;
    }
    EXPECT_TRUE(writing.get());
    EXPECT_EQ(stored, "first more");
}

TEST_F(SftpWriteBehind, GoesOnWhereASmallWindowOpensOnlyOnceHalfOfItIsUsed)
{
    constexpr std::uint32_t window = 8'192;
    constexpr int manyLooks = 10'000;
    std::uint32_t left = window;
    int looks = 0;
    ON_CALL(libssh, ssh_channel_window_size).WillByDefault([&](ssh_channel) {
        left = ++looks > manyLooks ? window : left;
        return left;
    });
    ON_CALL(libssh, ssh_channel_write)
        .WillByDefault([&](ssh_channel, const void* packet, std::uint32_t size) {
            left -= std::min(left, size);
            left = left < window / 2 ? window : left;
            return take(static_cast<const char*>(packet), size);
        });
    // Leaves one half of the window.
    const std::size_t overhead = 25 + handleText.size();
    EXPECT_TRUE(writeAll(bytes(window / 2 - overhead)));
    EXPECT_EQ(left, window / 2);
    const std::string content = bytes(100'000);
    EXPECT_TRUE(writeAll(content));
    EXPECT_EQ(stored, content);
    EXPECT_LE(looks, manyLooks);
}

TEST_F(SftpWriteBehind, SendsLessAtATimeWhereTheServersWindowIsSmall)
{
    constexpr std::uint32_t window = 24'576;
    ON_CALL(libssh, ssh_channel_window_size).WillByDefault(Return(window));
    const std::string content = bytes(500'000);
    EXPECT_TRUE(writeAll(content));
    EXPECT_EQ(stored, content);
    EXPECT_LT(longest, window);
    EXPECT_GT(longest, window / 2);
}
