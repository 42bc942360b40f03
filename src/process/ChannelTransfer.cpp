#include "process/ChannelTransfer.h"

#include <Tarnis/SessionBlockingGuard.h>

#include <algorithm>
#include <cstdint>

namespace Tarnis {

namespace {

using Status = SSHChannelTransfer::Status;

// libssh grows a channel's window to whatever is asked for at once.
constexpr std::size_t largestRead = std::size_t{64} * 1024 * 1024;
// libssh queues whatever the peer's window allows, in memory.
constexpr std::size_t largestWrite = std::size_t{256} * 1024;

SSHChannelTransfer moved(int count)
{
    return {Status::Transferred, static_cast<std::size_t>(count)};
}

SSHChannelTransfer nothing(Status why)
{
    return {why, 0};
}

bool isLost(ssh_channel channel)
{
    return ssh_is_connected(ssh_channel_get_session(channel)) == 0;
}

/// Why a read brought nothing. libssh's own test for the end of file looks at both streams, so
/// unread error output would hide the end of the output: a poll of the one stream does not.
Status whyNothingRead(ssh_channel channel, bool isStderr, bool failed)
{
    const int available = ssh_channel_poll(channel, isStderr ? 1 : 0);
    if (available == SSH_EOF) {
        return Status::EndOfStream;
    }
    if (failed || available < 0 || (available == 0 && ssh_channel_is_open(channel) == 0)) {
        return Status::Error;
    }
    return Status::TimedOut;
}

Status whyNothingWritten(ssh_channel channel)
{
    if (isLost(channel)) {
        return Status::Error;
    }
    // Open, but refusing: an end of file was sent, or the close has arrived while output is unread.
    if (ssh_channel_is_open(channel) == 1 || ssh_channel_poll(channel, 0) != 0) {
        return Status::EndOfStream;
    }
    return Status::Error;
}

} // namespace

SSHChannelTransfer readArrived(ssh_channel channel, char* buffer, std::size_t size, bool isStderr)
{
    const SessionBlockingGuard guard(channel, 0);
    const auto wanted = static_cast<std::uint32_t>(std::min(size, largestRead));
    // libssh takes a null pointer for a mistake, but there is one in an empty vector.
    char none = 0;
    const int count = ssh_channel_read_timeout(channel, wanted == 0 ? &none : buffer, wanted,
                                               isStderr ? 1 : 0, 0);
    if (count > 0) {
        return moved(count);
    }
    // libssh 0.10 answers a time-out with 0, newer versions with SSH_AGAIN.
    const bool failed = count < 0 && count != SSH_AGAIN;
    return nothing(whyNothingRead(channel, isStderr, failed));
}

SSHChannelTransfer writeAccepted(ssh_channel channel, const char* data, std::size_t size)
{
    const SessionBlockingGuard guard(channel, 0);
    if (ssh_blocking_flush(ssh_channel_get_session(channel), 0) == SSH_AGAIN) {
        // What was handed on before has not left yet.
        return nothing(Status::TimedOut);
    }
    const auto offered = static_cast<std::uint32_t>(std::min(size, largestWrite));
    const int count = ssh_channel_write(channel, offered == 0 ? "" : data, offered);
    if (count > 0) {
        return moved(count);
    }
    return nothing(count == 0 ? Status::TimedOut : whyNothingWritten(channel));
}

} // namespace Tarnis
