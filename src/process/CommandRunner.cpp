#include "process/CommandRunner.h"

#include "handles/CString.h"
#include "handles/LibsshCompatibility.h"
#include "handles/SSHCall.h"
#include "handles/SSHFailure.h"
#include "process/ChannelRequests.h"
#include "process/ChannelTransfer.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SessionBlockingGuard.h>

#include <algorithm>
#include <utility>

#include <sys/ioctl.h>

namespace Tarnis {

using FileSystem::FailureCode;

namespace {

// libssh reads this much off the connection at once.
constexpr int bytesPerRound = 4096;
// After so many reads the lock is released for other threads.
constexpr int mostRounds = 256;
constexpr int mostPieces = 4;

/// How often libssh must read to take in what has arrived; at least once, to notice an end.
int roundsToRead(ssh_channel channel)
{
    int arrived = 0;
    const int socket = ssh_get_fd(ssh_channel_get_session(channel));
    if (::ioctl(socket, FIONREAD, &arrived) != 0) {
        arrived = 0;
    }
    return std::clamp(arrived / bytesPerRound + 1, 1, mostRounds);
}

} // namespace

CommandRunner::CommandRunner(std::shared_ptr<SSHHandleChannel> channel, std::string_view input,
                             std::chrono::milliseconds timeout)
    : channel_(std::move(channel))
    , opening_(*channel_, [this] { return renewChannel(); })
    , recorder_(channel_)
    , wait_(SSHSocketWait::deadlineAfter(timeout))
    , input_(input)
{}

CommandRunner::~CommandRunner()
{
    recorder_.stop();
    try {
        if (opening_.isAsked()) {
            SSHHandleChannel::abandon(channel_);
        } else {
            channel_->deleteMe();
        }
    } catch (...) {
        // A destructor has nobody to tell; the session frees what is left.
    }
}

SSHExecuteResult CommandRunner::run(const std::string& commandLine)
{
    Outcome outcome = Outcome::ConnectionLost;
    try {
        outcome = runPhases(commandLine);
        if (outcome == Outcome::TimedOut) {
            FileSystem::fail(FailureCode::TimedOut);
            killCommand();
        }
    } catch (const FileSystem::handle_fatal_error&) {
        // Another thread disconnected the session.
        error_ = sessionEnded;
        noteConnectionLost(sessionEnded);
    }
    return collect(outcome);
}

CommandRunner::Outcome CommandRunner::runPhases(const std::string& commandLine)
{
    if (!fitsCString(commandLine)) {
        error_ = "the command line holds a NUL byte";
        FileSystem::fail(FailureCode::BadName, error_);
        return Outcome::NotStarted;
    }
    const std::string line = commandLine + '\n';
    Step step = repeat([this](ssh_channel /*channel*/) { return open(); });
    if (step == Step::Done) {
        step = repeat([&](ssh_channel channel) { return exec(channel, line.c_str()); });
    }
    if (step == Step::Failed) {
        return Outcome::NotStarted;
    }
    if (step == Step::Done) {
        step = repeat([this](ssh_channel channel) { return transfer(channel); });
    }
    switch (step) {
    case Step::Done:
        return Outcome::Completed;
    case Step::Again:
        return Outcome::TimedOut;
    default:
        return Outcome::ConnectionLost;
    }
}

/// Repeats a step until it is through with its phase. Again: the time is up.
template <class StepFunction>
CommandRunner::Step CommandRunner::repeat(StepFunction stepFunction)
{
    for (;;) {
        const Step step = takeStep(stepFunction);
        if (step != Step::Again || !wait_.wait(*channel_)) {
            return step;
        }
    }
}

template <class StepFunction>
CommandRunner::Step CommandRunner::takeStep(StepFunction stepFunction)
{
    return callLocked(*channel_, [&](ssh_channel channel) {
        const SessionBlockingGuard guard(channel, 0);
        // The step may put another channel in the place of this one.
        ssh_session session = ssh_channel_get_session(channel);
        const auto before = recorder_.progress() + inputConsumed_;
        const Step step = stepFunction(channel);
        recorder_.rethrowFailure();
        if (recorder_.progress() + inputConsumed_ != before) {
            wait_.progressed();
        }
        const bool lost = ssh_is_connected(session) == 0;
        return noteFailure(lost && step != Step::Done ? Step::Lost : step, session);
    });
}

/// Later calls of other threads will have their own reasons.
CommandRunner::Step CommandRunner::noteFailure(Step step, ssh_session session)
{
    if (step == Step::Failed && closedUnanswered_) {
        error_ = closedInsteadOfAnswering;
        FileSystem::fail(FailureCode::Denied, error_);
    } else if (step == Step::Failed || step == Step::Lost) {
        const std::string text = transportFailureText(session);
        error_ = text.empty() && ssh_is_connected(session) == 0 ? sessionEnded : text;
        // A step that fails while the connection stands was refused by the server.
        FileSystem::fail(transportFailureCode(session, FailureCode::Denied),
                         FileSystem::FailureSource::Transport, ssh_get_error_code(session), text);
    }
    return step;
}

CommandRunner::Step CommandRunner::stepOf(int status)
{
    switch (status) {
    case SSH_OK:
        return Step::Done;
    case SSH_AGAIN:
        return Step::Again;
    default:
        return Step::Failed;
    }
}

CommandRunner::Step CommandRunner::open()
{
    return stepOf(opening_.advance());
}

bool CommandRunner::renewChannel()
{
    recorder_.stop();
    const bool isRenewed = channel_->renew();
    recorder_.start();
    return isRenewed;
}

CommandRunner::Step CommandRunner::exec(ssh_channel channel, const char* line)
{
    const int result = requestExec(channel, line, execSent_);
    execSent_ = result == SSH_AGAIN;
    closedUnanswered_ = result == SSH_EOF;
    return stepOf(result);
}

CommandRunner::Step CommandRunner::transfer(ssh_channel channel)
{
    feedInput(channel);
    pump(channel);
    return isComplete(channel) ? Step::Done : Step::Again;
}

void CommandRunner::feedInput(ssh_channel channel)
{
    using Status = SSHChannelTransfer::Status;
    for (int pieces = mostPieces; pieces > 0 && !inputEnded_; --pieces) {
        if (inputConsumed_ == input_.size()) {
            static_cast<void>(requestEndOfFile(channel));
            inputEnded_ = true;
            return;
        }
        const auto transfer =
            writeAccepted(channel, input_.data() + inputConsumed_, input_.size() - inputConsumed_);
        inputConsumed_ += transfer.count;
        // A command is free not to read its input; it may still have much to say.
        inputEnded_ = transfer.status == Status::EndOfStream || transfer.status == Status::Error;
        if (transfer.status != Status::Transferred) {
            return;
        }
    }
}

void CommandRunner::pump(ssh_channel channel) const
{
    for (int rounds = roundsToRead(channel); rounds > 0 && !recorder_.closed; --rounds) {
        // After the end of the streams a poll does not look at the connection any more, while the
        // exit code and the close may still be to come.
        const int result = recorder_.endOfStreams ? Compatibility::channelExitStatus(channel)
                                                  : ssh_channel_poll(channel, 0);
        if (result == SSH_ERROR) {
            return;
        }
    }
}

bool CommandRunner::isComplete(ssh_channel channel)
{
    if (recorder_.closed) {
        return true;
    }
    if (!recorder_.hasExit()) {
        return false;
    }
    return recorder_.endOfStreams ||
           drainDetector_.isDrained(channel, recorder_.progress(), DrainDetector::Clock::now());
}

void CommandRunner::killCommand()
{
    static_cast<void>(callLocked(*channel_, [](ssh_channel channel) {
        const SessionBlockingGuard guard(channel, 0);
        return requestSignal(channel, "KILL");
    }));
}

SSHExecuteResult CommandRunner::collect(Outcome outcome)
{
    const auto lock = channel_->getLock();
    SSHExecuteResult result;
    result.outcome = outcome;
    result.output = std::move(recorder_.output);
    result.errorOutput = std::move(recorder_.errorOutput);
    result.exitCode = recorder_.exitStatus;
    result.exitSignal = std::move(recorder_.exitSignal);
    result.inputConsumed = inputConsumed_;
    if (outcome == Outcome::NotStarted || outcome == Outcome::ConnectionLost) {
        result.error = std::move(error_);
    }
    return result;
}

} // namespace Tarnis
