#include "handles/CString.h"
#include "handles/SSHCall.h"
#include "handles/SSHHandleChannel.h"
#include "process/ChannelRequests.h"

#include <Tarnis/SSHProcess.h>

#include <optional>
#include <thread>
#include <utility>

namespace Tarnis {

using State = SSHCommandLineProcessState;

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
    if (!isRunning() && !isFinished() && &commandLine != &commandLine_) {
        const std::lock_guard<std::mutex> lock(commandLineMutex_);
        commandLine_ = commandLine;
    }
    // False either way: hosts have come to rely on it, so it cannot begin to mean anything.
    return false;
}

bool SSHProcess::start()
{
    const std::shared_ptr<SSHHandleChannel> channel = getChannel();
    // Of two threads that start it, the second one must find it running.
    const auto lock = channel != nullptr ? std::make_optional(channel->getLock()) : std::nullopt;
    if (isRunning() || isFinished()) {
        return false;
    }
    return open();
}

bool SSHProcess::start(const std::string& commandLine)
{
    setCommandLine(commandLine);
    return start();
}

bool SSHProcess::isRunning() const
{
    checkState();
    return state_.load() == State::Running;
}

bool SSHProcess::isFinished() const
{
    checkState();
    return state_.load() == State::Finished;
}

State SSHProcess::getProcessState()
{
    checkState();
    return state_.load();
}

bool SSHProcess::waitForFinished(std::chrono::milliseconds timeout) const
{
    const auto deadline = SSHCallLimits::deadlineAfter(timeout);
    while (!hasEnded() && SSHCallLimits::now() < deadline) {
        std::this_thread::sleep_for(SSHCallLimits::pause);
    }
    return hasEnded();
}

bool SSHProcess::kill()
{
    return sendSignal("KILL");
}

bool SSHProcess::terminate()
{
    return sendSignal("TERM");
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
    if (channel == nullptr || !fitsCString(line)) {
        return false;
    }
    // A channel is opened once and takes one command.
    if (previous != State::NotStarted && channel->isValid() && !channel->renew()) {
        return false;
    }
    if (!SSHChannel::do_open()) {
        return false;
    }
    auto request = [sent = false, text = line.c_str()](ssh_channel c) mutable {
        const int result = requestExec(c, text, sent);
        sent = result == SSH_AGAIN;
        return result;
    };
    return callUnblocked(*channel, request) == SSH_OK;
}

bool SSHProcess::do_isOpen() const
{
    return SSHChannel::do_isOpen();
}

bool SSHProcess::do_close()
{
    if (isRunning()) {
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

bool SSHProcess::hasEnded() const
{
    return queryExitStatus().isReported || !do_isOpen();
}

} // namespace Tarnis
