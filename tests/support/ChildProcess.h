#pragma once

#include "support/TemporaryDirectory.h"
#include "support/UniqueFd.h"
#include "support/WaitUntil.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace TarnisTest {

/// How a process ended.
struct ExitStatus
{
    /// The exit code; meaningless when a signal ended the process.
    int code = 0;
    /// The signal that ended the process; zero when it exited.
    int signal = 0;

    bool succeeded() const { return signal == 0 && code == 0; }
};

/// What to run, and with what around it.
struct Command
{
    /// The program, looked up in PATH unless it holds a slash, and its arguments.
    std::vector<std::string> arguments;
    /// "NAME=value"; with no entry the process has an empty environment.
    std::vector<std::string> environment;
    /// Start from the environment of the test process and add `environment` to it.
    bool inheritEnvironment = false;
    /// What the process reads from its standard input before it sees the end.
    std::string input;
    /// Where it runs; empty: where the test runs.
    std::string workingDirectory;
};

/// A running child process, with its output going to files of its own.
///
/// It runs under a supervisor process that kills everything the child started when this object is
/// destroyed, when the child ends, and when the test process dies: by crash, by SIGKILL, in any
/// way. One thread at a time.
class ChildProcess
{
public:
    /// Throws std::system_error when the program cannot be started.
    explicit ChildProcess(const Command& command);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    /// Kills the process and its descendants, and reaps them.
    ~ChildProcess();

    pid_t pid() const { return pid_; }

    /// Every process that the child started, directly or not, and that still runs.
    std::vector<pid_t> descendants() const;

    /// Sends a signal to the process itself, not to its descendants. Nothing once it has ended.
    void signal(int number);
    /// Stops the process and every descendant in its tracks (SIGSTOP); connections stay open.
    void suspend();
    /// Undoes suspend().
    void resume();
    /// Kills every descendant, those whose own parent has ended among them; the process goes on.
    void killDescendants();
    /// Kills the process and every descendant, and returns when they are gone.
    void kill();

    /// Waits until the process has ended and everything it started is gone; empty when it still
    /// runs after the limit.
    std::optional<ExitStatus> wait(std::chrono::milliseconds limit = kGenerousLimit);
    /// Whether the process has not ended yet.
    bool isRunning();

    /// What the process has written so far.
    std::string output() const;
    std::string errorOutput() const;

private:
    void start(const Command& command, const std::string& inputFile);
    void awaitStart();
    void reapSupervisor();

    TemporaryDirectory files_;
    UniqueFd lifeline_;
    pid_t supervisor_ = -1;
    pid_t pid_ = -1;
    std::optional<ExitStatus> status_;
};

/// What a command that has been run to its end left.
struct CommandResult
{
    ExitStatus status;
    /// The limit passed first, and the command was killed.
    bool timedOut = false;
    std::string output;
    std::string errorOutput;

    bool succeeded() const { return !timedOut && status.succeeded(); }
};

/// Runs a command to its end. Throws std::system_error when it cannot be started.
CommandResult runCommand(const Command& command, std::chrono::milliseconds limit = kGenerousLimit);

/// The same for a command that a test cannot go on without: throws std::runtime_error, with what
/// the command said, unless it succeeded. Returns its output.
std::string mustRun(const Command& command);

/// The first of the candidates (absolute paths) that is an executable file; empty when none is.
std::string findProgram(const std::vector<std::string>& candidates);

} // namespace TarnisTest
