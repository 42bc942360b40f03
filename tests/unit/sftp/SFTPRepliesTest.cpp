#include "sftp/SFTPReplies.h"

#include "sftp/ReplyFixture.h"
#include "sftp/SFTPRequest.h"
#include "sftp/SFTPWriteRequest.h"

#include <string>
#include <vector>

using Tarnis::sendWrite;
using TarnisTest::dataPacket;
using TarnisTest::fakeChannel;
using TarnisTest::namePacket;
using TarnisTest::number;
using TarnisTest::ReplyFixture;
using TarnisTest::statusPacket;
using TarnisTest::text;
using ::testing::InSequence;
using ::testing::Ne;
using ::testing::Return;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

/// Replies that arrived while others were waited for.
class SftpReplies : public ReplyFixture
{
protected:
    SftpReplies() { file.offset = 1'000; }

    int collectDirectly(std::uint32_t id)
    {
        return Tarnis::collectReadDirectly(&file, buffer, 8, id, stream);
    }

    bool collectWrite(std::uint32_t id)
    {
        stream = Tarnis::SFTPReplyStream(handle->lossMark());
        return Tarnis::collectWrite(&file, id, stream);
    }

    Tarnis::SFTPReplyStream stream{handle->lossMark()};
};

class SftpWriteRequest : public SftpReplies
{
protected:
    SftpWriteRequest()
    {
        ON_CALL(libssh, ssh_string_len).WillByDefault(Return(handleText.size()));
        ON_CALL(libssh, ssh_string_data).WillByDefault(Return(handleText.data()));
        ON_CALL(libssh, sftp_async_read_begin).WillByDefault([](sftp_file asked, std::uint32_t) {
            ++asked->sftp->id_counter;
            return asked->sftp->channel == nullptr ? -1 : 1;
        });
        ON_CALL(libssh, ssh_channel_write)
            .WillByDefault([this](ssh_channel, const void* data, std::uint32_t size) {
                sent.assign(static_cast<const char*>(data), size);
                return static_cast<int>(size);
            });
        sftp.id_counter = 6;
    }

    std::string handleText{"handle"};
    std::string sent;
    std::vector<char> packet;
};

} // namespace

TEST_F(SftpReplies, ThatHaveNotArrivedAreWaitedFor)
{
    arrived(4, dataPacket, text("other"));
    EXPECT_CALL(libssh, sftp_async_read(&file, buffer, 8, 5)).WillOnce(Return(3));
    EXPECT_EQ(collect(5), 3);
    EXPECT_NE(sftp.queue, nullptr);
}

TEST_F(SftpReplies, ThatHaveArrivedAreNotWaitedFor)
{
    arrived(4, dataPacket, text("four"));
    arrived(5, dataPacket, text("data"));
    arrived(6, dataPacket, text("six"));
    EXPECT_CALL(libssh, sftp_async_read).Times(0);
    // The other two when the test ends.
    EXPECT_CALL(libssh, ssh_buffer_free).Times(3);
    EXPECT_EQ(collect(5), 4);
    EXPECT_EQ(std::string(buffer, 4), "data");
    EXPECT_EQ(file.offset, 996U);
    EXPECT_EQ(sftp.queue->message->id, 4U);
    EXPECT_EQ(sftp.queue->next->message->id, 6U);
    EXPECT_EQ(sftp.queue->next->next, nullptr);
}

TEST_F(SftpReplies, OfWholeLengthLeaveThePosition)
{
    arrived(5, dataPacket, text("12345678"));
    EXPECT_EQ(collect(5), 8);
    EXPECT_EQ(file.offset, 1'000U);
}

TEST_F(SftpReplies, ThatTellTheEndOfTheFileMarkIt)
{
    arrived(5, statusPacket, number(SSH_FX_EOF) + text("") + text(""));
    EXPECT_EQ(collect(5), 0);
    EXPECT_EQ(file.eof, 1);
    EXPECT_EQ(file.offset, 992U);
    EXPECT_EQ(sftp.errnum, SSH_FX_EOF);
}

TEST_F(SftpReplies, ThatTellAnErrorAreErrors)
{
    arrived(5, statusPacket, number(SSH_FX_PERMISSION_DENIED));
    EXPECT_EQ(collect(5), SSH_ERROR);
    EXPECT_EQ(file.eof, 0);
    EXPECT_EQ(sftp.errnum, SSH_FX_PERMISSION_DENIED);
}

TEST_F(SftpReplies, ThatAreCollectedDirectlyComeOutOfTheQueue)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout(fakeChannel(), -1, 0)).WillOnce(Return(1));
    // Only to fill the queue: what libssh hands out itself it has copied once more.
    EXPECT_CALL(libssh, sftp_async_read(&file, _, 0, 0)).WillOnce([this](auto...) {
        arrived(5, dataPacket, text("data"));
        return SSH_AGAIN;
    });
    EXPECT_EQ(collectDirectly(5), 4);
    EXPECT_EQ(std::string(buffer, 4), "data");
    EXPECT_EQ(file.offset, 996U);
    EXPECT_EQ(sftp.queue, nullptr);
}

TEST_F(SftpReplies, ThatAreCollectedDirectlyMayTellTheEndOfTheFile)
{
    arrived(5, statusPacket, number(SSH_FX_EOF) + text("End of file") + text(""));
    EXPECT_CALL(libssh, sftp_async_read_begin).Times(0);
    EXPECT_EQ(collectDirectly(5), 0);
    EXPECT_EQ(file.eof, 1);
}

TEST_F(SftpReplies, ThatAreCollectedDirectlyLeaveTheTextOfARefusal)
{
    arrived(5, statusPacket, number(SSH_FX_PERMISSION_DENIED));
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, sftp_async_read_begin(&file, 1)).WillOnce(Return(9));
    EXPECT_CALL(libssh, sftp_async_read(&file, _, 0, 5)).WillOnce([this](auto...) {
        arrived(9, dataPacket, text("x"));
        return collect(5);
    });
    EXPECT_EQ(collectDirectly(5), SSH_ERROR);
    EXPECT_EQ(sftp.queue, nullptr);
}

TEST_F(SftpReplies, AreNotWaitedForOnceOneCouldNotBeRead)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).WillOnce(Return(1));
    EXPECT_CALL(libssh, sftp_async_read(&file, _, 0, 0)).WillOnce([this](auto...) {
        arrived(5, dataPacket, text("data"));
        return SSH_ERROR;
    });
    EXPECT_EQ(collectDirectly(5), 4);
    // What could not be read may have been this one's, or the next one's.
    EXPECT_EQ(collectDirectly(6), SSH_ERROR);
    EXPECT_FALSE(Tarnis::collectStatus(&file, 7, stream).has_value());
    arrived(8, dataPacket, text("data"));
    EXPECT_EQ(collectDirectly(8), 4);
}

TEST_F(SftpReplies, AreNotWaitedForWhenTheConnectionBroke)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, sftp_async_read).Times(0);
    EXPECT_EQ(collectDirectly(5), SSH_ERROR);
    EXPECT_EQ(collectDirectly(6), SSH_ERROR);
}

TEST_F(SftpReplies, ThatMakeNoSenseAreErrorsAndCopyNothing)
{
    arrived(1, dataPacket, text("longer than asked"));
    arrived(2, dataPacket, number(5) + "1234");
    arrived(3, dataPacket, "123");
    arrived(4, statusPacket, "");
    arrived(5, namePacket, number(0) + text(""));
    arrived(6, dataPacket, number(0xFFFFFFFFU));
    for (std::uint32_t id = 1; id <= 6; ++id) {
        EXPECT_EQ(collect(id), SSH_ERROR) << id;
    }
    EXPECT_EQ(std::string(buffer, 8), std::string(8, '\0'));
    EXPECT_EQ(file.offset, 1'000U);
}

TEST_F(SftpReplies, AreFetchedAlsoWhenTheFileIsAtItsEnd)
{
    file.eof = 1;
    EXPECT_CALL(libssh, sftp_async_read).WillOnce([](sftp_file asked, auto...) {
        EXPECT_EQ(asked->eof, 0);
        return 2;
    });
    EXPECT_EQ(collect(5), 2);
    EXPECT_EQ(file.eof, 1);
}

TEST_F(SftpWriteRequest, IsOnePacketOfTheProtocol)
{
    const auto id = sendWrite(&file, 0x0102030405060708, "data", 4, packet);
    EXPECT_EQ(id, 7U);
    const std::string body = std::string(1, '\6') + number(7) + text("handle") +
                             number(0x01020304) + number(0x05060708) + text("data");
    EXPECT_EQ(sent, text(body));
    EXPECT_EQ(sftp.channel, fakeChannel());
}

TEST_F(SftpWriteRequest, IsNotSentWithoutAnIdentifierOfLibsshs)
{
    EXPECT_CALL(libssh, ssh_channel_write).Times(0);
    EXPECT_CALL(libssh, sftp_async_read_begin).WillOnce(Return(-1));
    EXPECT_FALSE(sendWrite(&file, 0, "data", 4, packet).has_value());
    EXPECT_EQ(sftp.channel, fakeChannel());
}

TEST_F(SftpWriteRequest, ThatLeavesInPartHasFailed)
{
    EXPECT_CALL(libssh, ssh_channel_write).WillOnce(Return(SSH_ERROR)).WillOnce(Return(5));
    EXPECT_FALSE(sendWrite(&file, 0, "data", 4, packet).has_value());
    EXPECT_FALSE(sendWrite(&file, 0, "data", 4, packet).has_value());
}

TEST_F(SftpWriteRequest, IsWrittenWhenTheStatusSaysSo)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout(fakeChannel(), -1, 0)).WillOnce(Return(1));
    EXPECT_CALL(libssh, sftp_async_read(&file, _, 0, 0)).WillOnce([this](auto...) {
        arrived(7, statusPacket, number(SSH_FX_OK));
        return SSH_AGAIN;
    });
    EXPECT_TRUE(collectWrite(7));
    arrived(8, statusPacket, number(SSH_FX_OK));
    EXPECT_TRUE(collectWrite(8));
    EXPECT_EQ(sftp.queue, nullptr);
}

TEST_F(SftpWriteRequest, IsWrittenWithoutATextThatSaysSo)
{
    // libssh records the status that it waits for itself, also a good one.
    EXPECT_CALL(libssh, sftp_async_read(_, _, _, Ne(0U))).Times(0);
    EXPECT_CALL(libssh, sftp_async_read_begin).Times(0);
    arrived(7, statusPacket, number(SSH_FX_OK) + text("Success") + text("en"));
    EXPECT_TRUE(collectWrite(7));
}

TEST_F(SftpWriteRequest, IsAwaitedThroughRepliesToOthers)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).Times(2).WillRepeatedly(Return(1));
    EXPECT_CALL(libssh, sftp_async_read(&file, _, 0, 0))
        .WillOnce([this](auto...) {
            arrived(6, statusPacket, number(SSH_FX_FAILURE));
            return SSH_AGAIN;
        })
        .WillOnce([this](auto...) {
            arrived(8, dataPacket, text("data"));
            arrived(7, statusPacket, number(SSH_FX_OK));
            return SSH_AGAIN;
        });
    EXPECT_TRUE(collectWrite(7));
    EXPECT_TRUE(isQueued(6));
    EXPECT_TRUE(isQueued(8));
}

TEST_F(SftpWriteRequest, IsAwaitedWithoutATraceInTheFile)
{
    file.eof = 1;
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).WillOnce(Return(1));
    EXPECT_CALL(libssh, sftp_async_read).WillOnce([this](sftp_file asked, auto...) {
        EXPECT_EQ(asked->nonblocking, 1);
        EXPECT_EQ(asked->eof, 0);
        asked->offset = 0;
        arrived(7, statusPacket, number(SSH_FX_OK));
        return SSH_AGAIN;
    });
    EXPECT_TRUE(collectWrite(7));
    EXPECT_EQ(file.nonblocking, 0);
    EXPECT_EQ(file.eof, 1);
    EXPECT_EQ(file.offset, 1'000U);
}

TEST_F(SftpWriteRequest, IsNotWrittenWhenNoStatusCame)
{
    // libssh does not always note that the connection broke.
    sftp.errnum = SSH_FX_OK;
    EXPECT_CALL(libssh, ssh_channel_poll_timeout)
        .WillOnce(Return(SSH_ERROR))
        .WillOnce(Return(SSH_EOF))
        .WillOnce(Return(0))
        .WillOnce(Return(1));
    EXPECT_CALL(libssh, sftp_async_read).WillOnce(Return(SSH_ERROR));
    for (int attempt = 0; attempt < 4; ++attempt) {
        EXPECT_FALSE(collectWrite(7)) << attempt;
    }
}

TEST_F(SftpWriteRequest, IsWrittenWhenTheConnectionBrokeAfterTheStatus)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).WillOnce(Return(1));
    EXPECT_CALL(libssh, sftp_async_read).WillOnce([this](auto...) {
        arrived(7, statusPacket, number(SSH_FX_OK));
        return SSH_ERROR;
    });
    EXPECT_TRUE(collectWrite(7));
}

TEST_F(SftpWriteRequest, IsNotWrittenWhenTheStatusIsAnErrorWhichLibsshRecords)
{
    for (const std::uint32_t status : {1U, 4U, 12U}) {
        arrived(7, statusPacket, number(status));
        const InSequence inThisOrder;
        // libssh reads one more reply before it looks for the one it is to wait for.
        EXPECT_CALL(libssh, sftp_async_read_begin(&file, 1)).WillOnce([](sftp_file asked, auto...) {
            asked->offset += 1;
            return 9;
        });
        EXPECT_CALL(libssh, sftp_async_read(&file, _, 0, 7))
            .WillOnce([this](sftp_file asked, auto...) {
                EXPECT_EQ(asked->nonblocking, 0);
                arrived(9, statusPacket, number(SSH_FX_PERMISSION_DENIED));
                return collect(7);
            });
        EXPECT_FALSE(collectWrite(7)) << status;
        EXPECT_EQ(sftp.queue, nullptr);
        EXPECT_EQ(file.offset, 1'000U);
        EXPECT_EQ(file.eof, 0);
    }
}

TEST_F(SftpWriteRequest, IsNotWrittenWhenTheStatusIsAnErrorAndTheConnectionBroke)
{
    arrived(7, statusPacket, number(SSH_FX_FAILURE));
    EXPECT_CALL(libssh, sftp_async_read_begin).WillOnce(Return(-1)).WillOnce(Return(9));
    EXPECT_CALL(libssh, sftp_async_read(&file, _, 0, 8)).WillOnce(Return(SSH_ERROR));
    EXPECT_FALSE(collectWrite(7));
    EXPECT_EQ(sftp.queue, nullptr);
    arrived(8, statusPacket, number(SSH_FX_FAILURE));
    EXPECT_FALSE(collectWrite(8));
    EXPECT_EQ(sftp.queue, nullptr);
}

TEST_F(SftpWriteRequest, IsNotWrittenWhenTheReplyIsNoStatus)
{
    arrived(7, dataPacket, text(""));
    arrived(8, statusPacket, "");
    EXPECT_FALSE(Tarnis::collectStatus(&file, 7, stream).has_value());
    EXPECT_FALSE(collectWrite(8));
    EXPECT_EQ(sftp.queue, nullptr);
}
