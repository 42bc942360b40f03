// What is relied on in libssh's structures, over a queue as libssh makes it. With the real libssh
// it is relied on in TransferTest, RcloneFlowTest and RenameRequestTest.

#include "sftp/LibsshRequests.h"

#include "sftp/ReplyFixture.h"

#include <string>

using Tarnis::LibsshRequests;
using TarnisTest::dataPacket;
using TarnisTest::fakeChannel;
using TarnisTest::namePacket;
using TarnisTest::number;
using TarnisTest::ReplyFixture;
using TarnisTest::statusPacket;
using TarnisTest::text;
using ::testing::NotNull;
using ::testing::Return;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

/// Replies that arrived while others were waited for.
class SftpReplies : public ReplyFixture
{
protected:
    SftpReplies() { file.offset = 1'000; }

    /// The next wait lets these replies arrive.
    template <class Arrive>
    void nextArrive(Arrive arrive)
    {
        EXPECT_CALL(libssh, sftp_async_read(_, _, 0, 0)).WillOnce([arrive](auto...) {
            arrive();
            return SSH_AGAIN;
        });
    }

    LibsshRequests requests{handle->lossMark()};
};

class SftpOwnRequest : public SftpReplies
{
protected:
    SftpOwnRequest()
    {
        ON_CALL(libssh, sftp_async_read_begin).WillByDefault([this](sftp_file asked, auto...) {
            channelWhenNumbered = asked->sftp->channel;
            ++asked->sftp->id_counter;
            asked->sftp->errnum = SSH_FX_FAILURE;
            return asked->sftp->channel == nullptr ? -1 : 1;
        });
        sftp.id_counter = 6;
    }

    ssh_channel channelWhenNumbered = fakeChannel();
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
    arrived(5, statusPacket, number(SSH_FX_PERMISSION_DENIED) + text("no") + text("en"));
    EXPECT_EQ(collect(5), SSH_ERROR);
    EXPECT_EQ(file.eof, 0);
    EXPECT_EQ(sftp.errnum, SSH_FX_PERMISSION_DENIED);
    EXPECT_EQ(why.status, static_cast<std::uint32_t>(SSH_FX_PERMISSION_DENIED));
    EXPECT_EQ(why.text, "no");
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
        EXPECT_FALSE(why.text.empty()) << id;
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

TEST_F(SftpReplies, AreAwaitedThroughThoseToOthersWithoutAnyFile)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout(fakeChannel(), -1, 0))
        .Times(2)
        .WillRepeatedly(Return(1));
    EXPECT_CALL(libssh, sftp_async_read(_, NotNull(), 0, 0))
        .WillOnce([this](sftp_file asked, auto...) {
            EXPECT_NE(asked, &file);
            EXPECT_EQ(asked->sftp, &sftp);
            EXPECT_EQ(asked->nonblocking, 1);
            EXPECT_EQ(asked->eof, 0);
            arrived(6, statusPacket, number(SSH_FX_FAILURE));
            return SSH_AGAIN;
        })
        .WillOnce([this](auto...) {
            arrived(8, dataPacket, text("data"));
            arrived(7, statusPacket, number(SSH_FX_OK));
            return SSH_AGAIN;
        });
    const auto reply = requests.await(&sftp, 7);
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(typeOf(*reply), Tarnis::SFTPPacketType::Status);
    EXPECT_EQ(reply->fields(), number(SSH_FX_OK));
    EXPECT_TRUE(isQueued(6));
    EXPECT_TRUE(isQueued(8));
    EXPECT_FALSE(isQueued(7));
    EXPECT_FALSE(requests.isBroken());
}

TEST_F(SftpReplies, AreNotWaitedForOnceOneCouldNotBeRead)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).WillOnce(Return(1));
    EXPECT_CALL(libssh, sftp_async_read(_, _, 0, 0)).WillOnce([this](auto...) {
        arrived(5, dataPacket, text("data"));
        return SSH_ERROR;
    });
    EXPECT_TRUE(requests.await(&sftp, 5).has_value());
    // What could not be read may have been this one's, or the next one's.
    EXPECT_TRUE(requests.isBroken());
    EXPECT_FALSE(requests.await(&sftp, 6).has_value());
    EXPECT_FALSE(requests.takeIn(&sftp));
    arrived(8, dataPacket, text("data"));
    EXPECT_TRUE(requests.await(&sftp, 8).has_value());
}

TEST_F(SftpReplies, AreNotWaitedForWhenTheConnectionBroke)
{
    for (const int state : {SSH_ERROR, SSH_EOF, 0}) {
        LibsshRequests these(handle->lossMark());
        EXPECT_CALL(libssh, ssh_channel_poll_timeout).WillOnce(Return(state));
        EXPECT_CALL(libssh, sftp_async_read).Times(0);
        EXPECT_FALSE(these.await(&sftp, 5).has_value());
        EXPECT_FALSE(these.await(&sftp, 6).has_value());
        EXPECT_TRUE(handle->lossMark().exchange(false));
    }
}

// Not even those that the connection, which stands, could still bring.
TEST_F(SftpReplies, AreNotWaitedForByAnybodyAfterOneThatAnswersNoRequest)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).WillOnce(Return(1));
    EXPECT_CALL(libssh, sftp_async_read(_, _, 0, 0)).WillOnce([](sftp_file asked, auto...) {
        asked->sftp->errnum = SSH_FX_FAILURE;
        return SSH_ERROR;
    });
    EXPECT_FALSE(requests.await(&sftp, 5).has_value());
    EXPECT_TRUE(handle->isLost());
    EXPECT_EQ(sftp.errnum, SSH_FX_OK);
    LibsshRequests others(handle->lossMark());
    EXPECT_FALSE(others.await(&sftp, 6).has_value());
}

TEST_F(SftpReplies, AreTakenInForOthersWithoutWaiting)
{
    EXPECT_CALL(libssh, ssh_channel_poll_timeout).Times(0);
    EXPECT_CALL(libssh, ssh_channel_poll)
        .WillOnce(Return(0))
        .WillOnce(Return(1))
        .WillOnce(Return(SSH_ERROR));
    EXPECT_TRUE(requests.takeIn(&sftp));
    nextArrive([this] { arrived(4, dataPacket, text("other")); });
    EXPECT_TRUE(requests.takeIn(&sftp));
    EXPECT_TRUE(isQueued(4));
    EXPECT_FALSE(requests.takeIn(&sftp));
    EXPECT_TRUE(requests.isBroken());
}

TEST_F(SftpReplies, ThatSayNotOkTellWhy)
{
    arrived(1, statusPacket, number(SSH_FX_OK) + text("fine") + text("en"));
    arrived(2, statusPacket, number(SSH_FX_FAILURE) + text("worn out") + text("en"));
    arrived(3, statusPacket, "");
    arrived(4, dataPacket, text(""));
    EXPECT_FALSE(refusalIn(*requests.await(&sftp, 1)).has_value());
    const auto refused = refusalIn(*requests.await(&sftp, 2));
    ASSERT_TRUE(refused.has_value());
    EXPECT_EQ(refused->status, static_cast<std::uint32_t>(SSH_FX_FAILURE));
    EXPECT_EQ(refused->text, "worn out");
    for (const std::uint32_t id : {3U, 4U}) {
        const auto nonsense = refusalIn(*requests.await(&sftp, id));
        ASSERT_TRUE(nonsense.has_value());
        EXPECT_FALSE(nonsense->status.has_value());
        EXPECT_EQ(nonsense->text, "the server's reply is no status");
    }
}

TEST_F(SftpOwnRequest, IsNumberedByLibsshWhichSendsNothing)
{
    EXPECT_CALL(libssh, ssh_channel_write).Times(0);
    sftp.errnum = SSH_FX_OK;
    EXPECT_EQ(requests.takeNumber(&sftp), 7U);
    EXPECT_EQ(channelWhenNumbered, nullptr);
    EXPECT_EQ(sftp.channel, fakeChannel());
    EXPECT_EQ(sftp.errnum, SSH_FX_OK);
    EXPECT_EQ(file.offset, 1'000U);
}

TEST_F(SftpOwnRequest, HasNoNumberWhereLibsshGivesNone)
{
    EXPECT_CALL(libssh, sftp_async_read_begin)
        .WillOnce(Return(-1))
        .WillOnce(
            [](sftp_file asked, auto...) { return static_cast<int>(++asked->sftp->id_counter); });
    EXPECT_FALSE(requests.takeNumber(&sftp).has_value());
    EXPECT_FALSE(requests.takeNumber(&sftp).has_value());
    EXPECT_EQ(sftp.channel, fakeChannel());
    EXPECT_CALL(libssh, ssh_string_new).WillOnce(Return(nullptr));
    LibsshRequests withoutMemory(handle->lossMark());
    EXPECT_FALSE(withoutMemory.takeNumber(&sftp).has_value());
}

TEST_F(SftpOwnRequest, ThatLeavesInPartHasFailed)
{
    EXPECT_CALL(libssh, ssh_channel_write(fakeChannel(), _, 4))
        .WillOnce(Return(SSH_ERROR))
        .WillOnce(Return(3))
        .WillOnce(Return(4));
    EXPECT_FALSE(LibsshRequests::send(&sftp, "data"));
    EXPECT_FALSE(LibsshRequests::send(&sftp, "data"));
    EXPECT_TRUE(LibsshRequests::send(&sftp, "data"));
}

TEST_F(SftpOwnRequest, RenamesPlainlyWithTheExtensionsOutOfSight)
{
    auto* const extensions = reinterpret_cast<sftp_ext>(&file);
    sftp.ext = extensions;
    EXPECT_CALL(libssh, sftp_rename).WillOnce([](sftp_session asked, auto...) {
        EXPECT_EQ(asked->ext, nullptr);
        return SSH_ERROR;
    });
    EXPECT_EQ(Tarnis::renamePlainly(&sftp, "/a", "/b"), SSH_ERROR);
    EXPECT_EQ(sftp.ext, extensions);
    sftp.ext = nullptr;
}
