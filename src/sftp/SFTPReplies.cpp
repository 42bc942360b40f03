#include "sftp/SFTPReplies.h"

#include "handles/LibsshCompatibility.h"
#include "sftp/SFTPCall.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace Tarnis {

namespace {

constexpr std::uint8_t statusPacket = 101;
constexpr std::uint8_t dataPacket = 103;
constexpr std::uint8_t extendedReplyPacket = 201;
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

/// Reads replies that have arrived into the queue. libssh reads only while it waits for one; it is
/// told to wait for one that nobody asked for, but not to block, so it takes none out.
bool readArrivals(sftp_file file) noexcept
{
    const UntouchedFile untouched(file);
    file->nonblocking = 1;
    char nothing = 0;
    return Compatibility::waitRead(file, &nothing, 0, noRequest) == SSH_AGAIN;
}

/// Notes whether the replies can still be read. Where they cannot, the SFTP session may be over,
/// for everybody: a reply that was thrown away may have been somebody else's. To be called at once.
void noteReadable(sftp_file file, SFTPReplyStream& stream, bool isReadable) noexcept
{
    stream.isBroken = !isReadable;
    if (!isReadable) {
        markIfLost(file->sftp, *stream.lost);
    }
}

/// Waits for a reply and leaves it in the queue. False: it will not come.
bool awaitArrival(sftp_file file, std::uint32_t id, SFTPReplyStream& stream) noexcept
{
    while (!stream.isBroken && !hasArrived(file->sftp, id)) {
        const bool isReadable = !*stream.lost &&
                                ssh_channel_poll_timeout(file->sftp->channel, noTimeLimit, 0) > 0 &&
                                readArrivals(file);
        noteReadable(file, stream, isReadable);
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
    std::uint32_t number() const noexcept { return decode(bytes_); }

    /// What follows that number.
    const unsigned char* rest() const noexcept { return bytes_ + numberSize; }

    std::size_t restSize() const noexcept { return size_ - numberSize; }

    /// The text behind that number, as far as it is there.
    std::string text() const
    {
        if (restSize() < numberSize) {
            return {};
        }
        const std::size_t length = std::min<std::size_t>(decode(rest()), restSize() - numberSize);
        return {reinterpret_cast<const char*>(rest()) + numberSize, length};
    }

private:
    static std::uint32_t decode(const unsigned char* bytes) noexcept
    {
        std::uint32_t value = 0;
        for (std::size_t index = 0; index < numberSize; ++index) {
            value = value << 8U | bytes[index];
        }
        return value;
    }

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

SFTPRefusal refusalBy(const sftp_message_struct& status)
{
    const Payload payload(status);
    return {payload.number(), payload.text()};
}

SFTPRefusal refusalFor(const char* what)
{
    return {std::nullopt, what};
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
    if (hasArrived(file->sftp, id)) {
        // libssh has not come to it, as the one that it read could not be read.
        noteReadable(file, stream, false);
    }
    if (awaitArrival(file, static_cast<std::uint32_t>(another), stream)) {
        takeArrived(file->sftp, static_cast<std::uint32_t>(another));
    }
}

int takeStatus(sftp_file file, const sftp_message_struct& message, SFTPRefusal& why)
{
    const std::uint32_t status = Payload(message).number();
    file->sftp->errnum = static_cast<int>(status);
    if (status != SSH_FX_EOF) {
        why = refusalBy(message);
        return SSH_ERROR;
    }
    file->eof = 1;
    return 0;
}

int takeData(sftp_file file, const Payload& payload, void* data, std::uint32_t size,
             SFTPRefusal& why)
{
    const std::uint32_t length = payload.number();
    if (length > size || length > payload.restSize()) {
        why = refusalFor(length > size ? "the server sent more than was asked for"
                                       : "the server sent less than it says");
        return SSH_ERROR;
    }
    file->offset -= size - length;
    std::memcpy(data, payload.rest(), length);
    return static_cast<int>(length);
}

int takeReply(sftp_file file, const sftp_message_struct& message, void* data, std::uint32_t size,
              SFTPRefusal& why)
{
    const Payload payload(message);
    if (payload.hasNumber() && message.packet_type == statusPacket) {
        return takeStatus(file, message, why);
    }
    if (payload.hasNumber() && message.packet_type == dataPacket) {
        return takeData(file, payload, data, size, why);
    }
    why = refusalFor("the server's reply is none to a read");
    return SSH_ERROR;
}

} // namespace

bool takeArrivalsIn(sftp_file file, SFTPReplyStream& stream) noexcept
{
    const bool isOver = stream.isBroken || *stream.lost;
    const int arrived = isOver ? SSH_ERROR : ssh_channel_poll(file->sftp->channel, 0);
    noteReadable(file, stream, arrived == 0 || (arrived > 0 && readArrivals(file)));
    return !stream.isBroken;
}

int collectRead(sftp_file file, void* data, std::uint32_t size, std::uint32_t id, SFTPRefusal& why)
{
    const int eofBefore = file->eof;
    file->eof = 0;
    const Message arrived = takeArrived(file->sftp, id);
    const int result = arrived != nullptr ? takeReply(file, *arrived, data, size, why)
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
                        SFTPReplyStream& stream)
{
    stream.refusal = {};
    if (!awaitArrival(file, id, stream)) {
        return SSH_ERROR;
    }
    const sftp_message_struct& reply = *(*findArrived(file->sftp, id))->message;
    if (isRefusal(reply)) {
        stream.refusal = refusalBy(reply);
        recordText(file, id, stream);
        // Where libssh has not taken it.
        takeArrived(file->sftp, id);
        return SSH_ERROR;
    }
    return collectRead(file, data, size, id, stream.refusal);
}

std::optional<std::uint32_t> collectStatus(sftp_file file, std::uint32_t id,
                                           SFTPReplyStream& stream)
{
    stream.refusal = {};
    if (!awaitArrival(file, id, stream)) {
        return std::nullopt;
    }
    const sftp_message_struct& reply = *(*findArrived(file->sftp, id))->message;
    const auto status = statusOf(reply);
    if (status && *status != SSH_FX_OK) {
        stream.refusal = refusalBy(reply);
        recordText(file, id, stream);
    } else if (!status) {
        stream.refusal = refusalFor("the server's reply is no status");
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

std::optional<std::string> collectExtendedReply(sftp_file file, std::uint32_t id,
                                                SFTPReplyStream& stream)
{
    if (!awaitArrival(file, id, stream)) {
        return std::nullopt;
    }
    const Message reply = takeArrived(file->sftp, id);
    const auto* const bytes = static_cast<const char*>(ssh_buffer_get(reply->payload));
    const bool isExtended = reply->packet_type == extendedReplyPacket && bytes != nullptr;
    return isExtended ? std::optional(std::string(bytes, ssh_buffer_get_len(reply->payload)))
                      : std::nullopt;
}

} // namespace Tarnis
