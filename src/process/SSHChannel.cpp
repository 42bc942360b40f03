#include "handles/CString.h"
#include "handles/LibsshCompatibility.h"
#include "handles/SSHCall.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHSocketWait.h"
#include "process/ChannelRequests.h"
#include "process/ChannelTransfer.h"

#include <Tarnis/SSHChannel.h>
#include <Tarnis/SessionBlockingGuard.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace Tarnis {

namespace {

constexpr std::size_t largestChunk = 0x7FFFFFFF;
constexpr int readTimeoutMilliseconds = 1;
constexpr int pollTimeoutMilliseconds = 1;
constexpr std::chrono::milliseconds noWait{0};

SSHHandleChannel& valid(const std::shared_ptr<SSHHandleChannel>& channel)
{
    if (channel == nullptr) {
        throw FileSystem::handle_fatal_error("invalid");
    }
    return *channel;
}

/// Moves `size` bytes in chunks, each by one call that is given the offset and the chunk's size.
/// A chunk counts whole however little of it the call moved; only an error does not count.
template <class MoveChunk>
std::size_t moveInChunks(std::size_t size, MoveChunk moveChunk)
{
    std::size_t done = 0;
    for (;;) {
        const std::size_t chunk = std::min(size - done, largestChunk);
        const int moved = moveChunk(done, static_cast<std::uint32_t>(chunk));
        if (moved < 0) {
            return done;
        }
        done += chunk;
        if (moved == 0 || static_cast<std::size_t>(moved) < chunk || done >= size) {
            return done;
        }
    }
}

/// Repeats one step of a transfer until it moves something, fails, or the time is up.
template <class Step>
SSHChannelTransfer transferWithin(std::chrono::milliseconds timeout, SSHHandleChannel& channel,
                                  Step step)
{
    SSHSocketWait wait(SSHSocketWait::deadlineAfter(timeout));
    SSHChannelTransfer transfer;
    do {
        transfer = callLocked(channel, step);
    } while (transfer.status == SSHChannelTransfer::Status::TimedOut && wait.wait(channel));
    return transfer;
}

} // namespace

SSHChannel::SSHChannel(std::shared_ptr<SSHHandleChannel>&& channel)
    : channel_(std::exchange(channel, nullptr))
{}

SSHChannel::~SSHChannel()
{
    try {
        SSHHandleChannel& channel = valid(channel_);
        const auto lock = channel.getLock();
        // In blocking mode, closing would wait for a server that has stopped reading.
        const SessionBlockingGuard guard(channel.getResource(), 0);
        if (SSHChannel::do_isOpen()) {
            SSHChannel::do_close();
        }
        channel.deleteMe();
    } catch (...) {
        // The session is gone, and the channel with it.
    }
}

std::shared_ptr<SSHHandleChannel> SSHChannel::getChannel()
{
    return channel_;
}

bool SSHChannel::isValid() const
{
    return channel_ != nullptr && channel_->isValid();
}

bool SSHChannel::open()
{
    return do_open();
}

bool SSHChannel::isOpen() const
{
    return do_isOpen();
}

bool SSHChannel::close()
{
    return do_close();
}

bool SSHChannel::do_open()
{
    SSHHandleChannel& channel = valid(channel_);
    const auto lock = channel.getLock();
    channel.watchExit();
    if (callLocked(channel, openChannel) != SSH_OK) {
        return false;
    }
    channel.markOpened();
    return true;
}

bool SSHChannel::do_isOpen() const
{
    return callLocked(valid(channel_), ssh_channel_is_open) == 1;
}

bool SSHChannel::do_close()
{
    SSHHandleChannel& channel = valid(channel_);
    // libssh would close channel number 0 of the server, whosever it is.
    return callLocked(channel, [&channel](ssh_channel c) {
               return channel.wasOpened() ? ssh_channel_close(c) : SSH_ERROR;
           }) == SSH_OK;
}

bool SSHChannel::isEOF() const
{
    return callLocked(valid(channel_), ssh_channel_is_eof) != 0;
}

bool SSHChannel::sendEOF() const
{
    return callUnblocked(valid(channel_), requestEndOfFile) == SSH_OK;
}

bool SSHChannel::sendSignal(const std::string& signalName) const
{
    SSHHandleChannel& channel = valid(channel_);
    const auto lock = channel.getLock();
    // libssh only queues the request while an earlier one is on its way.
    return fitsCString(signalName) &&
           callUnblocked(channel, requestSignal, signalName.c_str()) == SSH_OK &&
           callUnblocked(channel, [](ssh_channel c) {
               return ssh_blocking_flush(ssh_channel_get_session(c), 0);
           }) == SSH_OK;
}

std::optional<int> SSHChannel::getExitCode()
{
    const ExitStatus status = queryExitStatus();
    if (!status.isReported && do_isOpen()) {
        return std::nullopt;
    }
    return status.value;
}

std::optional<std::string> SSHChannel::getExitSignal() const
{
    SSHHandleChannel& channel = valid(channel_);
    const auto lock = channel.getLock();
    // Takes in what has arrived.
    static_cast<void>(queryExitStatus());
    return channel.getExit() != nullptr ? channel.getExit()->signal() : std::nullopt;
}

SSHChannel::ExitStatus SSHChannel::queryExitStatus() const
{
    SSHHandleChannel& channel = valid(channel_);
    const auto lock = channel.getLock();
    const auto isReported = [&channel] {
        return channel.getExit() != nullptr && channel.getExit()->status().has_value();
    };
    const int status = callUnblocked(channel, [&isReported](ssh_channel c) {
        const int answer = Compatibility::channelExitStatus(c);
        // The status itself may be the number that asks for another try.
        return answer == SSH_AGAIN && isReported() ? SSH_OK : answer;
    });
    return isReported() ? ExitStatus{true, *channel.getExit()->status()}
                        : ExitStatus{status >= 0, status};
}

std::size_t SSHChannel::bytesAvailable(bool isStderr) const
{
    const int available = callLocked(valid(channel_), ssh_channel_poll_timeout,
                                     pollTimeoutMilliseconds, isStderr ? 1 : 0);
    return available < 0 ? 0 : static_cast<std::size_t>(available);
}

std::size_t SSHChannel::read(char* buffer, std::size_t size, bool isStderr) const
{
    SSHHandleChannel& channel = valid(channel_);
    return moveInChunks(size, [&](std::size_t done, std::uint32_t chunk) {
        return callUnblocked(channel, ssh_channel_read_timeout, buffer + done, chunk,
                             isStderr ? 1 : 0, readTimeoutMilliseconds);
    });
}

std::size_t SSHChannel::write(const char* data, std::size_t size) const
{
    SSHHandleChannel& channel = valid(channel_);
    return moveInChunks(size, [&](std::size_t done, std::uint32_t chunk) {
        return callUnblocked(channel, ssh_channel_write, data + done, chunk);
    });
}

std::string SSHChannel::readAll(bool isStderr)
{
    std::string text(bytesAvailable(isStderr), '\0');
    if (text.empty()) {
        return text;
    }
    const std::size_t count = read(text.data(), text.size(), isStderr);
    text.resize(count);
    return text;
}

SSHChannelTransfer SSHChannel::readSome(char* buffer, std::size_t size, bool isStderr,
                                        std::chrono::milliseconds timeout) const
{
    return transferWithin(size == 0 ? noWait : timeout, valid(channel_), [=](ssh_channel channel) {
        return readArrived(channel, buffer, size, isStderr);
    });
}

SSHChannelTransfer SSHChannel::writeSome(const char* data, std::size_t size,
                                         std::chrono::milliseconds timeout) const
{
    return transferWithin(size == 0 ? noWait : timeout, valid(channel_),
                          [=](ssh_channel channel) { return writeAccepted(channel, data, size); });
}

} // namespace Tarnis
