#pragma once

#include "sftp/LibsshRequests.h"
#include "sftp/SftpFixture.h"

#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace TarnisTest {

inline constexpr std::uint8_t statusPacket = 101;
inline constexpr std::uint8_t dataPacket = 103;
inline constexpr std::uint8_t namePacket = 104;

inline std::string number(std::uint32_t value)
{
    std::string bytes;
    for (unsigned shift = 32; shift > 0;) {
        shift -= 8;
        bytes.push_back(static_cast<char>(value >> shift));
    }
    return bytes;
}

inline std::string text(const std::string& bytes)
{
    return number(static_cast<std::uint32_t>(bytes.size())) + bytes;
}

/// An SFTP session whose queue replies arrive in.
class ReplyFixture : public SftpFixture
{
protected:
    ReplyFixture()
    {
        ON_CALL(libssh, ssh_string_new).WillByDefault(::testing::Return(fakeString()));
        ON_CALL(libssh, ssh_buffer_get).WillByDefault([this](ssh_buffer payload) {
            return static_cast<void*>(payloads.at(payload).data());
        });
        ON_CALL(libssh, ssh_buffer_get_len).WillByDefault([this](ssh_buffer payload) {
            return static_cast<std::uint32_t>(payloads.at(payload).size());
        });
    }

    ~ReplyFixture() override
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
        why = {};
        return Tarnis::receiveRead(&file, buffer, size, id, why);
    }

    bool isQueued(std::uint32_t id) const
    {
        for (auto* place = sftp.queue; place != nullptr; place = place->next) {
            if (place->message->id == id) {
                return true;
            }
        }
        return false;
    }

    std::vector<std::uint32_t> ids;
    std::map<ssh_buffer, std::string> payloads;
    char buffer[16] = {};
    /// Of the last reply that was collected.
    Tarnis::SFTPRefusal why;
};

} // namespace TarnisTest
