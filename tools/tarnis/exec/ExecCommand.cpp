#include "Commands.h"
#include "Failure.h"
#include "exec/Interrupts.h"
#include "exec/Relays.h"
#include "login/Connecting.h"
#include "login/ConnectionOptions.h"
#include "login/Login.h"
#include "login/Target.h"
#include "terminal/Messages.h"
#include "terminal/StandardStreams.h"

#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>

#include <CLI/CLI.hpp>

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <poll.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

/// Runs one command on the server, with our own standard streams as its streams.
///
/// Its end is the end of its streams, as with ssh: a child in the background that holds them is
/// waited for. Its exit code may come before that or after.
class RemoteCommand
{
public:
    /// \param session authenticated.
    /// \param timeout zero: none.
    RemoteCommand(Tarnis::SSHSession& session, const Target& target, std::chrono::seconds timeout);

    /// The code that this program should exit with. Throws Failure where that is not the command's.
    int run(const std::string& commandLine);

private:
    class Run;

    Tarnis::SSHSession& session_;
    const Target& target_;
    std::chrono::seconds timeout_;
};

using Clock = std::chrono::steady_clock;

// How long a wait may last before somebody looks at signals and the time limit again.
constexpr std::chrono::milliseconds shortWait{10};
// For sending a signal to a server that may have stopped reading.
constexpr std::chrono::seconds lastWordLimit{2};

constexpr int largestExitCode = 255;

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
    // This one ends the session where the server has stopped answering altogether.
    const Watchdog watchdog(command_.session_, command_.timeout_ > std::chrono::seconds::zero()
                                                   ? command_.timeout_ + lastWordLimit
                                                   : std::chrono::seconds::zero());
    interrupts_.emplace();
    output_.emplace(*process_, false, STDOUT_FILENO);
    if (wasClosed(STDOUT_FILENO)) {
        // Standard output was closed when the program began: the output is read and dropped, so
        // that the command runs to its end.
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
        // Our own watchdog may have interrupted the session at the time limit.
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

/// Drops the error output where nobody reads it any more. False: nobody reads the output, and there
/// is no use in going on.
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

/// `tarnis exec`: runs a command on a server.
class ExecCommand : public Command
{
public:
    explicit ExecCommand(CLI::App& program);

    int run(const std::vector<std::string>& words) override;

    int failureCode() const override { return ExitCode::execFailure; }

private:
    std::string targetText_;
    LoginOptions options_;
    std::chrono::seconds timeout_{0};
    bool hasNoInput_ = false;
};

/// As ssh does it: the server's shell gets one line and splits it anew.
std::string join(const std::vector<std::string>& words)
{
    std::string line;
    for (const std::string& word : words) {
        line += (&word == &words.front() ? "" : " ") + word;
    }
    return line;
}

ExecCommand::ExecCommand(CLI::App& program)
    : Command(program, "exec", "Run a command on a server")
{
    commandLine()
        .add_option("target", targetText_, "Where to run it: [user@]host[:port]")
        ->required()
        ->type_name("");
    declareTimeLimit(commandLine(), "--timeout", timeout_,
                     "End the command (KILL) when it runs longer than this; 0: let it run");
    commandLine().add_flag("-n,--no-input", hasNoInput_,
                           "Give the command no input instead of our standard input");
    declareLoginOptions(commandLine(), options_);
    showInUsage("-- command line");
    commandLine().footer(
        "Output and error output appear on standard output and standard error as they arrive.\n"
        "The exit code is the command's; 255 when it has none or could not be run; 2 for wrong\n"
        "usage. Ctrl-C asks the command to end (TERM), the second one ends it (KILL), the third\n"
        "ends this program.\n\n"
        "Example: tarnis exec alice@example.org:2222 -- tar czf - /etc > etc.tgz");
}

int ExecCommand::run(const std::vector<std::string>& words)
{
    Target target = parseTarget(targetText_, options_.reach.port);
    const std::string line = join(words);
    if (line.empty()) {
        throw UsageError("exec needs a command line after \"--\"");
    }
    const LoginSecrets secrets = LoginSecrets::fetch(options_);
    if (hasNoInput_) {
        closeStandardInput();
    }
    Tarnis::SSHSession session;
    openSession(session, target, options_, secrets);
    return RemoteCommand(session, target, timeout_).run(line);
}

} // namespace

std::unique_ptr<Command> makeExecCommand(CLI::App& program)
{
    return std::make_unique<ExecCommand>(program);
}

} // namespace TarnisTool
