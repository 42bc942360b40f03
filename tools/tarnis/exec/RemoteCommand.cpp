#include "exec/RemoteCommand.h"

#include "ExitCode.h"
#include "Failure.h"
#include "exec/InputForwarder.h"
#include "exec/Interrupts.h"
#include "exec/OutputRelay.h"
#include "login/Connecting.h"
#include "login/Watchdog.h"
#include "terminal/Messages.h"
#include "terminal/StandardStreams.h"

#include <Tarnis/SSHProcess.h>

#include <array>
#include <memory>
#include <optional>

#include <poll.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

using Clock = std::chrono::steady_clock;

// How long a wait may last before somebody looks at signals and the time limit again.
constexpr std::chrono::milliseconds shortWait{10};
// For sending a signal to a server that may have stopped reading.
constexpr std::chrono::seconds lastWordLimit{2};

constexpr int largestExitCode = 255;

} // namespace

/// One command from its start to its end.
class RemoteCommand::Run
{
public:
    Run(const RemoteCommand& command, const std::string& commandLine);

    void start();
    int finish();

private:
    void relayOutput();
    void waitForSomething();
    void waitForLocalReaders();
    void waitForExit();
    void attendToUser();
    void checkDeadline();
    bool dropLocalReaders();
    int exitCode();

    const RemoteCommand& command_;
    Clock::time_point deadline_;
    std::unique_ptr<Tarnis::SSHProcess> process_;
    std::optional<Interrupts> interrupts_;
    std::optional<OutputRelay> output_;
    std::optional<OutputRelay> errorOutput_;
    bool isOutputClosed_ = false;
};

RemoteCommand::Run::Run(const RemoteCommand& command, const std::string& commandLine)
    : command_(command)
    , deadline_(command.timeout_ > std::chrono::seconds::zero() ? Clock::now() + command.timeout_
                                                                : Clock::time_point::max())
    , process_(command.session_.createProcess(commandLine))
{}

void RemoteCommand::Run::start()
{
    const Watchdog watchdog(command_.session_, command_.timeout_);
    if (process_ != nullptr && process_->start()) {
        return;
    }
    const auto why = FileSystem::Failure::last();
    if (watchdog.hasBitten()) {
        checkDeadline();
    }
    if (!command_.session_.isConnected()) {
        throwConnectionLost(command_.target_, "lost the connection to", why);
    }
    throw Failure(FailureKind::CommandRefused, "cannot run the command on",
                  command_.target_.display(), why.cause());
}

int RemoteCommand::Run::finish()
{
    // The last resort, for a server that has stopped altogether.
    const Watchdog watchdog(command_.session_, command_.timeout_ > std::chrono::seconds::zero()
                                                   ? command_.timeout_ + lastWordLimit
                                                   : std::chrono::seconds::zero());
    interrupts_.emplace();
    output_.emplace(*process_, false, STDOUT_FILENO);
    if (wasClosed(STDOUT_FILENO)) {
        // Nobody wants it, and the command is to run as it would.
        output_->discard();
    }
    errorOutput_.emplace(*process_, true, STDERR_FILENO);
    {
        const InputForwarder input(*process_);
        relayOutput();
        if (isOutputClosed_) {
            return ExitCode::execFailure;
        }
        waitForExit();
    }
    return exitCode();
}

void RemoteCommand::Run::relayOutput()
{
    while (!output_->isFinished() || !errorOutput_->isFinished()) {
        const bool hasMoved = output_->advance(std::chrono::milliseconds::zero());
        const bool hasMovedError = errorOutput_->advance(std::chrono::milliseconds::zero());
        if (!hasMoved && !hasMovedError) {
            if (!dropLocalReaders()) {
                return;
            }
            waitForSomething();
        }
        attendToUser();
    }
    if (output_->isIncomplete() || errorOutput_->isIncomplete()) {
        // It may have been our own watchdog.
        checkDeadline();
        throwConnectionLost(command_.target_, "lost the connection to",
                            output_->isIncomplete() ? output_->failure() : errorOutput_->failure());
    }
}

void RemoteCommand::Run::waitForSomething()
{
    if (output_->hasPending() || errorOutput_->hasPending()) {
        waitForLocalReaders();
    } else if (output_->isOpen()) {
        output_->advance(shortWait);
    } else {
        errorOutput_->advance(shortWait);
    }
}

void RemoteCommand::Run::waitForLocalReaders()
{
    std::array<pollfd, 3> events{{{interrupts_->wakeUpDescriptor(), POLLIN, 0},
                                  {output_->descriptor(), POLLOUT, 0},
                                  {errorOutput_->descriptor(), POLLOUT, 0}}};
    // Those without pending data would be ready all the time.
    events[1].fd = output_->hasPending() ? events[1].fd : -1;
    events[2].fd = errorOutput_->hasPending() ? events[2].fd : -1;
    ::poll(events.data(), events.size(), static_cast<int>(shortWait.count()));
}

/// What is left to do when nobody reads any more. False: give up, the output was what it was about.
bool RemoteCommand::Run::dropLocalReaders()
{
    if (errorOutput_->isReaderGone()) {
        errorOutput_->discard();
    }
    isOutputClosed_ = output_->isReaderGone();
    return !isOutputClosed_;
}

void RemoteCommand::Run::waitForExit()
{
    while (!process_->waitForFinished(shortWait)) {
        attendToUser();
    }
}

void RemoteCommand::Run::attendToUser()
{
    interrupts_->deliverTo(*process_);
    checkDeadline();
}

void RemoteCommand::Run::checkDeadline()
{
    if (Clock::now() < deadline_) {
        return;
    }
    {
        const Watchdog watchdog(command_.session_, lastWordLimit);
        if (process_->isValid() && process_->isOpen()) {
            static_cast<void>(process_->kill());
        }
    }
    throw Failure(
        FailureKind::CommandTimedOut, "gave up the command on", command_.target_.display(),
        "it did not end within " + std::to_string(command_.timeout_.count()) + " seconds");
}

int RemoteCommand::Run::exitCode()
{
    const int code = process_->getExitCode().value_or(-1);
    if (code >= 0) {
        // A greater one would be cut to eight bits, and might read as success.
        return code > largestExitCode ? largestExitCode : code;
    }
    if (!command_.session_.isConnected()) {
        throwConnectionLost(command_.target_, "lost the connection to",
                            FileSystem::Failure::last());
    }
    const auto signal = process_->getExitSignal();
    report("the command on " + command_.target_.display() +
           (signal ? " was ended by the signal " + *signal
                   : " ended without an exit code, and the server tells no signal"));
    return ExitCode::execFailure;
}

RemoteCommand::RemoteCommand(Tarnis::SSHSession& session, const Target& target,
                             std::chrono::seconds timeout)
    : session_(session)
    , target_(target)
    , timeout_(timeout)
{}

int RemoteCommand::run(const std::string& commandLine)
{
    Run run(*this, commandLine);
    run.start();
    return run.finish();
}

} // namespace TarnisTool
