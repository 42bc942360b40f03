#include "sftp/LibsshRequests.h"

#include "handles/LibsshCompatibility.h"
#include "handles/SFTPLoss.h"
#include "sftp/wire/SFTPReplyFields.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace Tarnis {

namespace {

constexpr std::uint32_t noRequest = 0;
constexpr int noTimeLimit = -1;

/// Where the queue has a reply; its end when it has not.
sftp_request_queue* findArrived(sftp_session sftp, std::uint32_t number) noexcept
{
    sftp_request_queue* place = &sftp->queue;
    while (*place != nullptr && (*place)->message->id != number) {
        place = &(*place)->next;
    }
    return place;
}

std::optional<LibsshReply> takeArrived(sftp_session sftp, std::uint32_t number) noexcept
{
    sftp_request_queue* const place = findArrived(sftp, number);
    const sftp_request_queue entry = *place;
    if (entry == nullptr) {
        return std::nullopt;
    }
    LibsshReply reply(entry->message);
    *place = entry->next;
    std::free(entry); // NOLINT(cppcoreguidelines-no-malloc)
    return reply;
}

bool readArrivals(sftp_session sftp) noexcept
{
    sftp_file_struct standIn = {};
    standIn.sftp = sftp;
    standIn.nonblocking = 1;
    char nothing = 0;
    return Compatibility::waitRead(&standIn, &nothing, 0, noRequest) == SSH_AGAIN;
}

SFTPRefusal refusalFor(const char* what)
{
    return {std::nullopt, what};
}

SFTPRefusal refusalBy(const SFTPStatusReply& status)
{
    return {static_cast<std::uint32_t>(status.code), std::string(status.text)};
}

/// Draws the conclusions for libssh's file, as libssh does.
int concludeRead(sftp_file file, const LibsshReply& reply, char* data, std::uint32_t size,
                 SFTPRefusal& why)
{
    const SFTPReadOutcome outcome = takeData(reply, data, size);
    if (outcome.refusal) {
        why = *outcome.refusal;
        file->sftp->errnum = static_cast<int>(why.status.value_or(SSH_FX_OK));
        return SSH_ERROR;
    }
    if (outcome.isEnd) {
        file->sftp->errnum = SSH_FX_EOF;
        file->eof = 1;
        return 0;
    }
    file->offset -= size - outcome.count;
    return static_cast<int>(outcome.count);
}

} // namespace

void LibsshReply::Deleter::operator()(sftp_message message) const noexcept
{
    ssh_buffer_free(message->payload);
    std::free(message); // NOLINT(cppcoreguidelines-no-malloc)
}

SFTPPacketType LibsshReply::type() const noexcept
{
    return static_cast<SFTPPacketType>(message_->packet_type);
}

std::string_view LibsshReply::fields() const noexcept
{
    const auto* const bytes = static_cast<const char*>(ssh_buffer_get(message_->payload));
    return bytes != nullptr ? std::string_view(bytes, ssh_buffer_get_len(message_->payload))
                            : std::string_view();
}

SFTPReadOutcome takeData(const LibsshReply& reply, char* data, std::uint32_t size)
{
    if (reply.type() == SFTPPacketType::Status) {
        const auto status = decodeStatus(reply.fields());
        if (status && status->code == SFTPStatusCode::EndOfFile) {
            return {0, true, std::nullopt};
        }
        return {0, false, status ? refusalBy(*status) : refusalFor("the server's status is none")};
    }
    if (reply.type() != SFTPPacketType::Data) {
        return {0, false, refusalFor("the server's reply is none to a read")};
    }
    const auto bytes = decodeData(reply.fields());
    if (!bytes || bytes->size() > size) {
        return {0, false,
                refusalFor(bytes ? "the server sent more than was asked for"
                                 : "the server sent less than it says")};
    }
    std::memcpy(data, bytes->data(), bytes->size());
    return {static_cast<std::uint32_t>(bytes->size()), false, std::nullopt};
}

std::optional<SFTPRefusal> refusalIn(const LibsshReply& reply)
{
    const auto status =
        reply.type() == SFTPPacketType::Status ? decodeStatus(reply.fields()) : std::nullopt;
    if (!status) {
        return refusalFor("the server's reply is no status");
    }
    return status->code != SFTPStatusCode::Ok ? std::make_optional(refusalBy(*status))
                                              : std::nullopt;
}

LibsshRequests::LibsshRequests(std::atomic<bool>& lost)
    : noHandle_(ssh_string_new(0))
    , lost_(lost)
{}

std::optional<std::uint32_t> LibsshRequests::takeNumber(sftp_session sftp) noexcept
{
    if (noHandle_ == nullptr) {
        return std::nullopt;
    }
    sftp_file_struct standIn = {};
    standIn.sftp = sftp;
    standIn.handle = noHandle_.get();
    const std::uint32_t before = sftp->id_counter;
    const int status = sftp->errnum;
    const ssh_channel channel = std::exchange(sftp->channel, nullptr);
    const int sent = Compatibility::beginRead(&standIn, 0);
    sftp->channel = channel;
    sftp->errnum = status;
    const bool isNumbered = sent < 0 && sftp->id_counter == before + 1;
    return isNumbered ? std::optional(sftp->id_counter) : std::nullopt;
}

bool LibsshRequests::send(sftp_session sftp, std::string_view request) noexcept
{
    const auto size = static_cast<std::uint32_t>(request.size());
    const int written = ssh_channel_write(sftp->channel, request.data(), size);
    return written >= 0 && static_cast<std::uint32_t>(written) == size;
}

bool LibsshRequests::takeIn(sftp_session sftp) noexcept
{
    const int arrived = isBroken_ || lost_ ? SSH_ERROR : ssh_channel_poll(sftp->channel, 0);
    noteReadable(sftp, arrived == 0 || (arrived > 0 && readArrivals(sftp)));
    return !isBroken_;
}

std::optional<LibsshReply> LibsshRequests::await(sftp_session sftp, std::uint32_t number) noexcept
{
    while (!isBroken_ && *findArrived(sftp, number) == nullptr) {
        noteReadable(sftp, !lost_ && ssh_channel_poll_timeout(sftp->channel, noTimeLimit, 0) > 0 &&
                               readArrivals(sftp));
    }
    return takeArrived(sftp, number);
}

/// Where the replies cannot be read any more, the SFTP session may be over, for everybody: a reply
/// that was thrown away may have been somebody else's. To be called at once.
void LibsshRequests::noteReadable(sftp_session sftp, bool isReadable) noexcept
{
    isBroken_ = !isReadable;
    if (!isReadable) {
        markIfLost(sftp, lost_);
    }
}

int collectRead(sftp_file file, char* data, std::uint32_t size, std::uint32_t number,
                SFTPRefusal& why)
{
    const int eofBefore = std::exchange(file->eof, 0);
    const auto arrived = takeArrived(file->sftp, number);
    const int result = arrived ? concludeRead(file, *arrived, data, size, why)
                               : Compatibility::waitRead(file, data, size, number);
    if (result == 0 && file->eof != 0 && file->offset >= size) {
        // libssh takes a short answer off the position, but not one without anything.
        file->offset -= size;
    }
    if (eofBefore != 0) {
        file->eof = eofBefore;
    }
    return result;
}

int renamePlainly(sftp_session sftp, const char* path, const char* newPath) noexcept
{
    const sftp_ext extensions = std::exchange(sftp->ext, nullptr);
    const int result = sftp_rename(sftp, path, newPath);
    sftp->ext = extensions;
    return result;
}

} // namespace Tarnis
