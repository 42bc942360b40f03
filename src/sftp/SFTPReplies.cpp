#include "sftp/SFTPReplies.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace Tarnis {

namespace {

constexpr std::uint8_t statusPacket = 101;
constexpr std::uint8_t dataPacket = 103;
constexpr std::size_t numberSize = 4;

/// libssh makes its messages with malloc, and has no function to free one.
struct MessageDeleter
{
    void operator()(sftp_message message) const noexcept
    {
        ssh_buffer_free(message->payload);
        std::free(message); // NOLINT(cppcoreguidelines-no-malloc)
    }
};

using Message = std::unique_ptr<sftp_message_struct, MessageDeleter>;

/// Takes a reply that has arrived out of the SFTP session's queue; null when it has not.
Message takeArrived(sftp_session sftp, std::uint32_t id) noexcept
{
    for (sftp_request_queue* place = &sftp->queue; *place != nullptr; place = &(*place)->next) {
        const sftp_request_queue entry = *place;
        if (entry->message->id == id) {
            Message message(entry->message);
            *place = entry->next;
            std::free(entry); // NOLINT(cppcoreguidelines-no-malloc)
            return message;
        }
    }
    return nullptr;
}

/// What is left of a reply after its identifier.
class Payload
{
public:
    explicit Payload(const sftp_message_struct& message) noexcept
        : bytes_(static_cast<const unsigned char*>(ssh_buffer_get(message.payload)))
        , size_(ssh_buffer_get_len(message.payload))
    {}

    bool hasNumber() const noexcept { return bytes_ != nullptr && size_ >= numberSize; }

    /// The number in front, in network order.
    std::uint32_t number() const noexcept
    {
        std::uint32_t value = 0;
        for (std::size_t index = 0; index < numberSize; ++index) {
            value = value << 8U | bytes_[index];
        }
        return value;
    }

    /// What follows that number.
    const unsigned char* rest() const noexcept { return bytes_ + numberSize; }

    std::size_t restSize() const noexcept { return size_ - numberSize; }

private:
    const unsigned char* bytes_;
    std::size_t size_;
};

int takeStatus(sftp_file file, std::uint32_t status) noexcept
{
    file->sftp->errnum = static_cast<int>(status);
    if (status != SSH_FX_EOF) {
        return SSH_ERROR;
    }
    file->eof = 1;
    return 0;
}

int takeData(sftp_file file, const Payload& payload, void* data, std::uint32_t size) noexcept
{
    const std::uint32_t length = payload.number();
    if (length > size || length > payload.restSize()) {
        return SSH_ERROR;
    }
    file->offset -= size - length;
    std::memcpy(data, payload.rest(), length);
    return static_cast<int>(length);
}

int takeReply(sftp_file file, const sftp_message_struct& message, void* data,
              std::uint32_t size) noexcept
{
    const Payload payload(message);
    if (!payload.hasNumber()) {
        return SSH_ERROR;
    }
    switch (message.packet_type) {
    case statusPacket:
        return takeStatus(file, payload.number());
    case dataPacket:
        return takeData(file, payload, data, size);
    default:
        return SSH_ERROR;
    }
}

} // namespace

int collectRead(sftp_file file, void* data, std::uint32_t size, std::uint32_t id) noexcept
{
    const int eofBefore = file->eof;
    file->eof = 0;
    const Message arrived = takeArrived(file->sftp, id);
    const int result = arrived != nullptr ? takeReply(file, *arrived, data, size)
                                          : sftp_async_read(file, data, size, id);
    if (result == 0 && file->eof != 0 && file->offset >= size) {
        // libssh takes a short answer off the position, but not one without anything.
        file->offset -= size;
    }
    if (eofBefore != 0) {
        file->eof = eofBefore;
    }
    return result;
}

} // namespace Tarnis
