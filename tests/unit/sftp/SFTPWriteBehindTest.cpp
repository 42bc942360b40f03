#include "sftp/ReplyFixture.h"
#include "sftp/SFTPBulkTransfer.h"

#include <FileSystem/HandleFatalError.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

using FileSystem::handle_fatal_error;
using FileSystem::StorageSystemFileOpenModeFlag;
using Tarnis::SFTPBulkTransfer;
using TarnisTest::number;
using TarnisTest::ReplyFixture;
using TarnisTest::statusPacket;
using ::testing::Return;

namespace {

constexpr std::size_t largest = 256'000;

/// A server with one file, which takes write requests.
class SftpWriteBehind : public ReplyFixture
{
protected:
    SftpWriteBehind()
        : opened(openFile())
        , transfer(opened, StorageSystemFileOpenModeFlag::Write)
    {
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
        underWay.insert(static_cast<std::uint32_t>(numberAt(5)));
        mostUnderWay = std::max(mostUnderWay, underWay.size());
        const std::uint64_t length = numberAt(fields + 8);
        longest = std::max<std::size_t>(longest, length);
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
        arrived(id, statusPacket, number(statusFor(id)));
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

TEST_F(SftpWriteBehind, WritesOneByOneWithAnotherLibssh)
{
    EXPECT_CALL(libssh, ssh_version).WillRepeatedly(Return("0.11.1"));
    EXPECT_CALL(libssh, ssh_channel_write).Times(0);
    const std::string content = bytes(600'000);
    EXPECT_TRUE(writeAll(content));
    EXPECT_EQ(stored, content);
    EXPECT_EQ(plainWrites, 3);
}

TEST_F(SftpWriteBehind, FailsWhereTheFirstAnswerAndAPlainWriteFail)
{
    failsAt = 1;
    EXPECT_CALL(libssh, sftp_write).WillOnce(Return(-1));
    EXPECT_FALSE(writeAll("data"));
    EXPECT_EQ(handle->getBulkWriting(), Tarnis::SSHHandleSFTPSession::BulkWriting::Unknown);
}

TEST_F(SftpWriteBehind, DoesNotWriteForeverWhereNothingIsTaken)
{
    EXPECT_CALL(libssh, ssh_version).WillRepeatedly(Return("0.11.1"));
    plainCap = 0;
    EXPECT_FALSE(writeAll("data"));
}

TEST_F(SftpWriteBehind, IsNotDoneForAFileThatIsAppendedTo)
{
    SFTPBulkTransfer appending(opened, StorageSystemFileOpenModeFlag::Write |
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
    SFTPBulkTransfer reading(opened, StorageSystemFileOpenModeFlag::Read);
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
        SFTPBulkTransfer leaving(opened, StorageSystemFileOpenModeFlag::Write);
        const std::string content = bytes(600'000);
        EXPECT_TRUE(leaving.start(0));
        EXPECT_TRUE(leaving.write(content.data(), content.size()));
        EXPECT_FALSE(underWay.empty());
    }
    EXPECT_TRUE(underWay.empty());
    EXPECT_FALSE(handle->hasBulkWriters());
}
