#include "handles/CString.h"
#include "handles/ChannelOpening.h"
#include "handles/LibsshCompatibility.h"
#include "handles/SSHCall.h"
#include "handles/SSHFailure.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHSocketWait.h"
#include "process/ChannelRequests.h"
#include "process/ChannelTransfer.h"

#include <FileSystem/FailureScope.h>
#include <Tarnis/SSHChannel.h>
#include <Tarnis/SessionBlockingGuard.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::FailureScope;

namespace {

constexpr std::size_t largestChunk = 0x7FFFFFFF;
constexpr int readTimeoutMilliseconds = 1;
constexpr int pollTimeoutMilliseconds = 1;
constexpr std::chrono::milliseconds noWait{0};

/// A time-out counts as no bytes, as libssh answers up to 0.10. Newer versions answer SSH_AGAIN,
/// which is not followed by another try here: a silent server would be asked again for 100 seconds.
int readForAMoment(ssh_channel channel, char* buffer, std::uint32_t size, int isStderr)
{
    const int count =
        ssh_channel_read_timeout(channel, buffer, size, isStderr, readTimeoutMilliseconds);
    const bool saysAgain = ssh_version(SSH_VERSION_INT(0, 11, 0)) != nullptr;
    return count == SSH_AGAIN && saysAgain ? 0 : count;
}

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

/// Notes why the last libssh call on a channel failed, as noteTransportFailure() does;
/// ConnectionLost also where the channel alone has gone. To be called under the session's lock, at
/// once. False.
bool noteChannelFailure(ssh_channel channel, FailureCode otherwise = FailureCode::Other)
{
    ssh_session session = ssh_channel_get_session(channel);
    if (ssh_is_connected(session) != 0 && ssh_channel_is_open(channel) == 0) {
        // What libssh has to say is about something else then.
        return noteConnectionLost("the channel is not open");
    }
    return noteTransportFailure(session, otherwise);
}

/// Notes that the connection has gone, and the channel with it.
void noteIfDisconnected(ssh_channel channel)
{
    ssh_session session = ssh_channel_get_session(channel);
    if (ssh_is_connected(session) == 0 && ssh_channel_is_open(channel) == 0) {
        noteTransportFailure(session);
    }
}

/// callUnblocked, and a note of why it failed.
template <class Function, class... Args>
int moveChunk(SSHHandleChannel& channel, Function function, Args... args)
{
    const auto lock = channel.getLock();
    const int moved = callUnblocked(channel, function, args...);
    if (moved < 0) {
        const auto otherwise = moved == SSH_AGAIN ? FailureCode::TimedOut : FailureCode::Other;
        callLocked(channel, noteChannelFailure, otherwise);
    }
    return moved;
}

/// The same for a request, which is done or is not.
template <class Request, class... Args>
bool isDone(SSHHandleChannel& channel, Request request, Args... args)
{
    return moveChunk(channel, request, args...) == SSH_OK;
}

/// Repeats one step of a transfer until it moves something, fails, or the time is up.
template <class Step>
SSHChannelTransfer transferWithin(std::chrono::milliseconds timeout, SSHHandleChannel& channel,
                                  Step step)
{
    using Status = SSHChannelTransfer::Status;
    SSHSocketWait wait(SSHSocketWait::deadlineAfter(timeout));
    SSHChannelTransfer transfer;
    do {
        transfer = callLocked(channel, [step](ssh_channel c) {
            const SSHChannelTransfer moved = step(c);
            if (moved.status == Status::Error) {
                noteChannelFailure(c);
            }
            return moved;
        });
    } while (transfer.status == Status::TimedOut && wait.wait(channel));
    if (transfer.status == Status::TimedOut && timeout > noWait) {
        fail(FailureCode::TimedOut);
    }
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
    FailureScope scope("open");
    return scope.result(do_open());
}

bool SSHChannel::isOpen() const
{
    FailureScope scope("isOpen");
    return scope.answer(do_isOpen());
}

bool SSHChannel::close()
{
    FailureScope scope("close");
    return scope.result(do_close());
}

bool SSHChannel::do_open()
{
    SSHHandleChannel& channel = valid(channel_);
    const auto lock = channel.getLock();
    channel.watchExit();
    const auto renew = [&channel] {
        const bool isRenewed = channel.renew();
        channel.watchExit();
        return isRenewed;
    };
    return callLocked(channel, [&](ssh_channel c) {
        // Of which there may be another one afterwards.
        ssh_session session = ssh_channel_get_session(c);
        return ChannelOpening(channel, renew).finish() == SSH_OK || noteTransportFailure(session);
    });
}

bool SSHChannel::do_isOpen() const
{
    return callLocked(valid(channel_), ssh_channel_is_open) == 1;
}

bool SSHChannel::do_close()
{
    SSHHandleChannel& channel = valid(channel_);
    return callLocked(channel, [&channel](ssh_channel c) {
        // libssh would close channel number 0 of the server, whosever it is.
        if (!channel.wasOpened()) {
            return fail(FailureCode::Other, "the channel was never opened");
        }
        if (ssh_channel_close(c) != SSH_OK) {
            return noteTransportFailure(ssh_channel_get_session(c));
        }
        channel.markClosed();
        return true;
    });
}

bool SSHChannel::isEOF() const
{
    FailureScope scope("isEOF");
    return scope.answer(callLocked(valid(channel_), ssh_channel_is_eof) != 0);
}

bool SSHChannel::sendEOF() const
{
    FailureScope scope("sendEOF");
    return scope.result(isDone(valid(channel_), requestEndOfFile));
}

bool SSHChannel::sendSignal(const std::string& signalName) const
{
    FailureScope scope("sendSignal");
    SSHHandleChannel& channel = valid(channel_);
    const auto lock = channel.getLock();
    if (!fitsCString(signalName)) {
        return scope.result(fail(FailureCode::BadName, "the signal's name holds a NUL byte"));
    }
    // libssh only queues the request while an earlier one is on its way.
    return scope.result(isDone(channel, requestSignal, signalName.c_str()) &&
                        isDone(channel, [](ssh_channel c) {
                            return ssh_blocking_flush(ssh_channel_get_session(c), 0);
                        }));
}

std::optional<int> SSHChannel::getExitCode()
{
    FailureScope scope("getExitCode");
    const ExitStatus status = queryExitStatus();
    const bool isNoneYet = !status.isReported && do_isOpen();
    noteIfCutOff();
    return scope.asNoted(isNoneYet ? std::nullopt : std::make_optional(status.value));
}

std::optional<std::string> SSHChannel::getExitSignal() const
{
    FailureScope scope("getExitSignal");
    SSHHandleChannel& channel = valid(channel_);
    const auto lock = channel.getLock();
    // Takes in what has arrived.
    static_cast<void>(queryExitStatus());
    noteIfCutOff();
    std::optional<std::string> signal;
    if (channel.getExit() != nullptr) {
        signal = channel.getExit()->signal();
    }
    return scope.answer(std::move(signal));
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

void SSHChannel::noteIfCutOff() const
{
    if (!isValid()) {
        return;
    }
    const auto lock = channel_->getLock();
    const ChannelExit* const exit = channel_->getExit();
    const bool isEndUnknown = channel_->wasOpened() && exit != nullptr && !exit->status() &&
                              !exit->signal() && !exit->isClosed() && channel_->isValid();
    if (isEndUnknown) {
        callLocked(*channel_, noteIfDisconnected);
    }
}

std::size_t SSHChannel::bytesAvailable(bool isStderr) const
{
    FailureScope scope("bytesAvailable");
    return scope.answer(callLocked(valid(channel_), [isStderr](ssh_channel channel) {
        const int available =
            ssh_channel_poll_timeout(channel, pollTimeoutMilliseconds, isStderr ? 1 : 0);
        if (available == SSH_ERROR) {
            noteChannelFailure(channel);
        }
        return available < 0 ? 0 : static_cast<std::size_t>(available);
    }));
}

std::size_t SSHChannel::read(char* buffer, std::size_t size, bool isStderr) const
{
    FailureScope scope("read");
    SSHHandleChannel& channel = valid(channel_);
    return scope.answer(moveInChunks(size, [&](std::size_t done, std::uint32_t chunk) {
        return moveChunk(channel, readForAMoment, buffer + done, chunk, isStderr ? 1 : 0);
    }));
}

std::size_t SSHChannel::write(const char* data, std::size_t size) const
{
    FailureScope scope("write");
    SSHHandleChannel& channel = valid(channel_);
    return scope.answer(moveInChunks(size, [&](std::size_t done, std::uint32_t chunk) {
        return moveChunk(channel, ssh_channel_write, data + done, chunk);
    }));
}

std::string SSHChannel::readAll(bool isStderr)
{
    FailureScope scope("readAll");
    std::string text(bytesAvailable(isStderr), '\0');
    if (!text.empty()) {
        const std::size_t count = read(text.data(), text.size(), isStderr);
        text.resize(count);
    }
    return scope.asNoted(std::move(text));
}

SSHChannelTransfer SSHChannel::readSome(char* buffer, std::size_t size, bool isStderr,
                                        std::chrono::milliseconds timeout) const
{
    FailureScope scope("readSome");
    return scope.asNoted(
        transferWithin(size == 0 ? noWait : timeout, valid(channel_), [=](ssh_channel channel) {
            return readArrived(channel, buffer, size, isStderr);
        }));
}

SSHChannelTransfer SSHChannel::writeSome(const char* data, std::size_t size,
                                         std::chrono::milliseconds timeout) const
{
    FailureScope scope("writeSome");
    return scope.asNoted(
        transferWithin(size == 0 ? noWait : timeout, valid(channel_),
                       [=](ssh_channel channel) { return writeAccepted(channel, data, size); }));
}

} // namespace Tarnis
