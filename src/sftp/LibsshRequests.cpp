#include "sftp/LibsshRequests.h"

#include "handles/LibsshCompatibility.h"
#include "handles/SFTPLoss.h"
#include "sftp/wire/SFTPReplyFields.h"

#include <cstring>
#include <string>

namespace Tarnis {

namespace {

constexpr int noTimeLimit = -1;

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
        setStatus(sftpOf(file), static_cast<int>(why.status.value_or(SSH_FX_OK)));
        return SSH_ERROR;
    }
    if (outcome.isEnd) {
        setStatus(sftpOf(file), SSH_FX_EOF);
        setAtEnd(file, true);
        return 0;
    }
    movePositionBack(file, size - outcome.count);
    return static_cast<int>(outcome.count);
}

} // namespace

SFTPPacketType typeOf(const LibsshReply& reply) noexcept
{
    return static_cast<SFTPPacketType>(reply.type());
}

SFTPReadOutcome takeData(const LibsshReply& reply, char* data, std::uint32_t size)
{
    if (typeOf(reply) == SFTPPacketType::Status) {
        const auto status = decodeStatus(reply.fields());
        if (status && status->code == SFTPStatusCode::EndOfFile) {
            return {0, true, std::nullopt};
        }
        return {0, false, status ? refusalBy(*status) : refusalFor("the server's status is none")};
    }
    if (typeOf(reply) != SFTPPacketType::Data) {
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
        typeOf(reply) == SFTPPacketType::Status ? decodeStatus(reply.fields()) : std::nullopt;
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
    return noHandle_ != nullptr ? takeRequestNumber(sftp, noHandle_.get()) : std::nullopt;
}

bool LibsshRequests::send(sftp_session sftp, std::string_view request) noexcept
{
    const auto size = static_cast<std::uint32_t>(request.size());
    const int written = ssh_channel_write(channelOf(sftp), request.data(), size);
    return written >= 0 && static_cast<std::uint32_t>(written) == size;
}

bool LibsshRequests::takeIn(sftp_session sftp) noexcept
{
    const int arrived = isBroken_ || lost_ ? SSH_ERROR : ssh_channel_poll(channelOf(sftp), 0);
    noteReadable(sftp, arrived == 0 || (arrived > 0 && readArrivals(sftp)));
    return !isBroken_;
}

std::optional<LibsshReply> LibsshRequests::await(sftp_session sftp, std::uint32_t number) noexcept
{
    while (!isBroken_ && !hasArrived(sftp, number)) {
        noteReadable(sftp, !lost_ &&
                               ssh_channel_poll_timeout(channelOf(sftp), noTimeLimit, 0) > 0 &&
                               readArrivals(sftp));
    }
    return takeArrived(sftp, number);
}

/// Where the replies cannot be read any more the SFTP session is over, for everybody: a reply that
/// was thrown away may have been somebody else's, and those to what is in flight here would come
/// without anybody who takes them. To be called at once.
void LibsshRequests::noteReadable(sftp_session sftp, bool isReadable) noexcept
{
    isBroken_ = !isReadable;
    if (!isReadable && !markIfLost(sftp, lost_)) {
        // What libssh says of a reply that nobody has asked for is no answer to anybody.
        clearStatus(sftp);
        lost_ = true;
    }
}

int receiveRead(sftp_file file, char* data, std::uint32_t size, std::uint32_t number,
                SFTPRefusal& why)
{
    const bool wasAtEnd = isAtEnd(file);
    setAtEnd(file, false);
    const auto arrived = takeArrived(sftpOf(file), number);
    const int result = arrived ? concludeRead(file, *arrived, data, size, why)
                               : Compatibility::waitRead(file, data, size, number);
    if (result == 0 && isAtEnd(file) && positionOf(file) >= size) {
        // libssh takes a short answer off the position, but not one without anything.
        movePositionBack(file, size);
    }
    if (wasAtEnd) {
        setAtEnd(file, true);
    }
    return result;
}

} // namespace Tarnis
