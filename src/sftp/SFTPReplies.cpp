#include "sftp/SFTPReplies.h"

#include "handles/LibsshCompatibility.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace Tarnis {

namespace {

constexpr std::uint8_t statusPacket = 101;
constexpr std::uint8_t dataPacket = 103;
constexpr std::size_t numberSize = 4;
// libssh numbers its requests from 1 on.
constexpr std::uint32_t noRequest = 0;
constexpr int noTimeLimit = -1;

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

/// Where the SFTP session's queue has a reply that has arrived; its end when it has not.
sftp_request_queue* findArrived(sftp_session sftp, std::uint32_t id) noexcept
{
    sftp_request_queue* place = &sftp->queue;
    while (*place != nullptr && (*place)->message->id != id) {
        place = &(*place)->next;
    }
    return place;
}

bool hasArrived(sftp_session sftp, std::uint32_t id) noexcept
{
    return *findArrived(sftp, id) != nullptr;
}

/// Takes a reply that has arrived out of the SFTP session's queue; null when it has not.
Message takeArrived(sftp_session sftp, std::uint32_t id) noexcept
{
    sftp_request_queue* const place = findArrived(sftp, id);
    const sftp_request_queue entry = *place;
    if (entry == nullptr) {
        return nullptr;
    }
    Message message(entry->message);
    *place = entry->next;
    std::free(entry); // NOLINT(cppcoreguidelines-no-malloc)
    return message;
}

/// Lets libssh read for a file without a trace in it.
class UntouchedFile
{
public:
    explicit UntouchedFile(sftp_file file) noexcept
        : file_(file)
        , before_(*file)
    {
        // At its end, libssh reads nothing.
        file_->eof = 0;
    }

    UntouchedFile(const UntouchedFile&) = delete;
    UntouchedFile& operator=(const UntouchedFile&) = delete;

    ~UntouchedFile()
    {
        file_->offset = before_.offset;
        file_->eof = before_.eof;
        file_->nonblocking = before_.nonblocking;
    }

private:
    sftp_file file_;
    sftp_file_struct before_;
};

/// Waits until replies arrive and reads them into the queue. libssh reads only while it waits for
/// one; it is told to wait for one that nobody asked for, but not to block, so it takes none out.
bool readArrivals(sftp_file file) noexcept
{
    if (ssh_channel_poll_timeout(file->sftp->channel, noTimeLimit, 0) <= 0) {
        return false;
    }
    const UntouchedFile untouched(file);
    file->nonblocking = 1;
    char nothing = 0;
    return Compatibility::waitRead(file, &nothing, 0, noRequest) == SSH_AGAIN;
}

/// Waits for a reply and leaves it in the queue. False: it will not come.
bool awaitArrival(sftp_file file, std::uint32_t id, SFTPReplyStream& stream) noexcept
{
    while (!stream.isBroken && !hasArrived(file->sftp, id)) {
        stream.isBroken = !readArrivals(file);
    }
    return hasArrived(file->sftp, id);
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

std::optional<std::uint32_t> statusOf(const sftp_message_struct& message) noexcept
{
    const Payload payload(message);
    return message.packet_type == statusPacket && payload.hasNumber()
               ? std::optional(payload.number())
               : std::nullopt;
}

bool isRefusal(const sftp_message_struct& message) noexcept
{
    const auto status = statusOf(message);
    return status && *status != SSH_FX_EOF;
}

/// Has libssh record the text of a bad status that is in the queue. It does so for a reply that it
/// has waited for, and always reads another one first. So one more is asked for.
void recordText(sftp_file file, std::uint32_t id, SFTPReplyStream& stream) noexcept
{
    const UntouchedFile untouched(file);
    const int another = stream.isBroken ? SSH_ERROR : Compatibility::beginRead(file, 1);
    if (another < 0) {
        return;
    }
    char nothing = 0;
    static_cast<void>(Compatibility::waitRead(file, &nothing, 0, id));
    if (awaitArrival(file, static_cast<std::uint32_t>(another), stream)) {
        takeArrived(file->sftp, static_cast<std::uint32_t>(another));
    }
}

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
                                          : Compatibility::waitRead(file, data, size, id);
    if (result == 0 && file->eof != 0 && file->offset >= size) {
        // libssh takes a short answer off the position, but not one without anything.
        file->offset -= size;
    }
    if (eofBefore != 0) {
        file->eof = eofBefore;
    }
    return result;
}

int collectReadDirectly(sftp_file file, void* data, std::uint32_t size, std::uint32_t id,
                        SFTPReplyStream& stream) noexcept
{
    if (!awaitArrival(file, id, stream)) {
        return SSH_ERROR;
    }
    if (isRefusal(*(*findArrived(file->sftp, id))->message)) {
        recordText(file, id, stream);
        // Where libssh has not taken it.
        takeArrived(file->sftp, id);
        return SSH_ERROR;
    }
    return collectRead(file, data, size, id);
}

std::optional<std::uint32_t> collectStatus(sftp_file file, std::uint32_t id,
                                           SFTPReplyStream& stream) noexcept
{
    if (!awaitArrival(file, id, stream)) {
        return std::nullopt;
    }
    const auto status = statusOf(*(*findArrived(file->sftp, id))->message);
    if (status && *status != SSH_FX_OK) {
        recordText(file, id, stream);
    }
    // Where libssh has not taken it.
    takeArrived(file->sftp, id);
    return status;
}

std::optional<std::uint32_t> collectStatusAlone(sftp_file file, std::uint32_t id,
                                                SFTPReplyStream& stream) noexcept
{
    if (!awaitArrival(file, id, stream)) {
        return std::nullopt;
    }
    return statusOf(*takeArrived(file->sftp, id));
}

} // namespace Tarnis
