#include "handles/CString.h"
#include "handles/ChannelsOfOthers.h"
#include "handles/SSHCall.h"
#include "handles/SSHFailure.h"
#include "handles/SSHHandleChannel.h"
#include "process/ChannelRequests.h"

#include <FileSystem/FailureScope.h>
#include <Tarnis/SSHProcess.h>

#include <optional>
#include <thread>
#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::FailureScope;
using State = SSHCommandLineProcessState;

namespace {

constexpr const char* hasBegun = "the command is running or has ended";

/// A server that closes the channel instead of answering has refused the command too. What libssh
/// has to say is about something else then, as it is where no answer has come.
bool noteRefusal(ssh_channel channel, int status)
{
    ssh_session session = ssh_channel_get_session(channel);
    const bool isConnected = ssh_is_connected(session) != 0;
    if (isConnected && status == SSH_AGAIN) {
        return fail(FailureCode::TimedOut);
    }
    if (isConnected && status == SSH_EOF) {
        return fail(FailureCode::Denied, closedInsteadOfAnswering);
    }
    return noteTransportFailure(session, FailureCode::Denied);
}

} // namespace

SSHProcess::SSHProcess(std::shared_ptr<SSHHandleChannel>&& channel)
    : SSHProcess(std::string(), std::move(channel))
{}

SSHProcess::SSHProcess(const std::string& commandLine, std::shared_ptr<SSHHandleChannel>&& channel)
    : SSHChannel(std::move(channel))
    , commandLine_(commandLine)
    , state_(State::NotStarted)
{}

SSHProcess::~SSHProcess() = default;

std::string SSHProcess::getCommandLine()
{
    const std::lock_guard<std::mutex> lock(commandLineMutex_);
    return commandLine_;
}

bool SSHProcess::setCommandLine(const std::string& commandLine)
{
    FailureScope scope("setCommandLine");
    if (hasBegunToRun()) {
        fail(FailureCode::Busy, hasBegun);
    } else if (&commandLine != &commandLine_) {
        const std::lock_guard<std::mutex> lock(commandLineMutex_);
        commandLine_ = commandLine;
    }
    // False either way: hosts have come to rely on it, so it cannot begin to mean anything.
    return scope.asNoted(false);
}

bool SSHProcess::start()
{
    FailureScope scope("start");
    bool isStarted = startAtOnce();
    const std::shared_ptr<SSHHandleChannel> channel = getChannel();
    if (!isStarted && channel != nullptr) {
        ChannelsOfOthers others(*channel);
        while (!isStarted && others.awaitOne()) {
            isStarted = startAtOnce();
        }
    }
    return scope.result(isStarted);
}

bool SSHProcess::startAtOnce()
{
    const std::shared_ptr<SSHHandleChannel> channel = getChannel();
    // Of two threads that start it, the second one must find it running.
    const auto lock = channel != nullptr ? std::make_optional(channel->getLock()) : std::nullopt;
    return hasBegunToRun() ? fail(FailureCode::Busy, hasBegun) : open();
}

bool SSHProcess::start(const std::string& commandLine)
{
    FailureScope scope("start");
    setCommandLine(commandLine);
    return scope.result(start());
}

bool SSHProcess::isRunning() const
{
    FailureScope scope("isRunning");
    return scope.asNoted(currentState() == State::Running);
}

bool SSHProcess::isFinished() const
{
    FailureScope scope("isFinished");
    return scope.asNoted(currentState() == State::Finished);
}

State SSHProcess::getProcessState()
{
    FailureScope scope("getProcessState");
    return scope.asNoted(currentState());
}

bool SSHProcess::waitForFinished(std::chrono::milliseconds timeout) const
{
    FailureScope scope("waitForFinished");
    const auto deadline = SSHCallLimits::deadlineAfter(timeout);
    while (!hasEnded() && SSHCallLimits::now() < deadline) {
        std::this_thread::sleep_for(SSHCallLimits::pause);
    }
    const bool ended = hasEnded();
    if (!ended && timeout > std::chrono::milliseconds::zero()) {
        fail(FailureCode::TimedOut);
    }
    noteIfCutOff();
    return scope.asNoted(ended);
}

bool SSHProcess::kill()
{
    FailureScope scope("kill");
    return scope.result(sendSignal("KILL"));
}

bool SSHProcess::terminate()
{
    FailureScope scope("terminate");
    return scope.result(sendSignal("TERM"));
}

bool SSHProcess::do_open()
{
    const State previous = state_.exchange(State::Starting);
    const bool running = runOnChannel(previous);
    state_.exchange(running ? State::Running : State::Failed);
    return running;
}

bool SSHProcess::runOnChannel(State previous)
{
    const std::shared_ptr<SSHHandleChannel> channel = getChannel();
    const std::string line = getCommandLine() + '\n';
    if (channel == nullptr) {
        return noteConnectionLost("the process has no channel");
    }
    if (!fitsCString(line)) {
        return fail(FailureCode::BadName, "the command line holds a NUL byte");
    }
    const auto lock = channel->getLock();
    // A channel is opened once and takes one command.
    if (previous != State::NotStarted && channel->isValid() && !channel->renew()) {
        return fail(FailureCode::NoResources, "libssh could not create a channel");
    }
    if (!SSHChannel::do_open()) {
        return false;
    }
    auto request = [sent = false, text = line.c_str()](ssh_channel c) mutable {
        const int result = requestExec(c, text, sent);
        sent = result == SSH_AGAIN;
        return result;
    };
    const int status = callUnblocked(*channel, request);
    return status == SSH_OK || callLocked(*channel, noteRefusal, status);
}

bool SSHProcess::do_isOpen() const
{
    return SSHChannel::do_isOpen();
}

bool SSHProcess::do_close()
{
    checkState();
    if (state_.load() == State::Running) {
        static_cast<void>(sendEOF());
    }
    return SSHChannel::do_close();
}

void SSHProcess::checkState() const
{
    if (state_.load() == State::Running && hasEnded()) {
        state_.exchange(State::Finished);
    }
}

bool SSHProcess::hasBegunToRun() const
{
    checkState();
    const State state = state_.load();
    return state == State::Running || state == State::Finished;
}

/// For its caller: with a note where the connection took the command along.
State SSHProcess::currentState() const
{
    checkState();
    const State state = state_.load();
    if (state == State::Finished) {
        noteIfCutOff();
    }
    return state;
}

bool SSHProcess::hasEnded() const
{
    return queryExitStatus().isReported || !do_isOpen();
}

} // namespace Tarnis
