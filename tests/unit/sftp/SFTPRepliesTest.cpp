#include "sftp/SFTPReplies.h"

#include "sftp/SFTPWriteRequest.h"
#include "sftp/SftpFixture.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

using Tarnis::canSendWrites;
using Tarnis::collectRead;
using Tarnis::collectWrite;
using Tarnis::sendWrite;
using TarnisTest::fakeChannel;
using TarnisTest::fakeString;
using TarnisTest::SftpFixture;
using ::testing::Return;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr std::uint8_t statusPacket = 101;
constexpr std::uint8_t dataPacket = 103;
constexpr std::uint8_t namePacket = 104;

std::string number(std::uint32_t value)
{
    std::string bytes;
    for (unsigned shift = 32; shift > 0;) {
        shift -= 8;
        bytes.push_back(static_cast<char>(value >> shift));
    }
    return bytes;
}

std::string text(const std::string& bytes)
{
    return number(static_cast<std::uint32_t>(bytes.size())) + bytes;
}

/// Replies that arrived while others were waited for.
class SftpReplies : public SftpFixture
{
protected:
    SftpReplies()
    {
        ON_CALL(libssh, ssh_buffer_get).WillByDefault([this](ssh_buffer payload) {
            return static_cast<void*>(payloads.at(payload).data());
        });
        ON_CALL(libssh, ssh_buffer_get_len).WillByDefault([this](ssh_buffer payload) {
            return static_cast<std::uint32_t>(payloads.at(payload).size());
        });
        file.offset = 1'000;
    }

    ~SftpReplies() override
    {
        for (const std::uint32_t id : ids) {
            if (isQueued(id)) {
                collect(id);
            }
        }
    }

    /// Puts a reply into the queue, as libssh does.
    void arrived(std::uint32_t id, std::uint8_t type, const std::string& payload)
    {
        ids.push_back(id);
        auto* const message =
            static_cast<sftp_message>(std::calloc(1, sizeof(sftp_message_struct)));
        message->sftp = &sftp;
        message->id = id;
        message->packet_type = type;
        message->payload = reinterpret_cast<ssh_buffer>(message);
        payloads[message->payload] = payload;
        auto* const place =
            static_cast<sftp_request_queue>(std::calloc(1, sizeof(sftp_request_queue_struct)));
        place->message = message;
        sftp_request_queue* end = &sftp.queue;
        while (*end != nullptr) {
            end = &(*end)->next;
        }
        *end = place;
    }

    int collect(std::uint32_t id, std::uint32_t size = 8)
    {
        return collectRead(&file, buffer, size, id);
    }

    bool isQueued(std::uint32_t id) const
    {
        for (auto place = sftp.queue; place != nullptr; place = place->next) {
            if (place->message->id == id) {
                return true;
            }
        }
        return false;
    }

    std::vector<std::uint32_t> ids;
    std::map<ssh_buffer, std::string> payloads;
    char buffer[16] = {};
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

TEST_F(SftpWriteRequest, IsMadeForLibssh010Alone)
{
    EXPECT_CALL(libssh, ssh_version(SSH_VERSION_INT(0, 11, 0)))
        .WillOnce(Return(nullptr))
        .WillOnce(Return("0.11.1"));
    EXPECT_TRUE(canSendWrites());
    EXPECT_FALSE(canSendWrites());
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
    EXPECT_CALL(libssh, sftp_async_read(&file, _, 0, 7)).WillOnce([this](auto...) {
        sftp.errnum = SSH_FX_OK;
        return SSH_ERROR;
    });
    EXPECT_TRUE(collectWrite(&file, 7));
    arrived(8, statusPacket, number(SSH_FX_OK));
    EXPECT_TRUE(collectWrite(&file, 8));
}

TEST_F(SftpWriteRequest, IsNotWrittenWhenNoStatusCame)
{
    // libssh does not always note that the connection broke.
    sftp.errnum = SSH_FX_OK;
    EXPECT_CALL(libssh, sftp_async_read).WillOnce(Return(SSH_ERROR));
    EXPECT_FALSE(collectWrite(&file, 7));
}

TEST_F(SftpWriteRequest, IsNotWrittenWhenTheStatusIsAnError)
{
    for (const std::uint32_t status : {1U, 4U, 12U}) {
        arrived(7, statusPacket, number(status));
        EXPECT_FALSE(collectWrite(&file, 7)) << status;
    }
}

TEST_F(SftpWriteRequest, IsNotWrittenWhenTheReplyIsNoStatus)
{
    arrived(7, dataPacket, text(""));
    EXPECT_FALSE(collectWrite(&file, 7));
}
