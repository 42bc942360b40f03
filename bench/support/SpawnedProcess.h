#pragma once

#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/types.h>

namespace TarnisBench {

/// Descriptors that a process gets as its own; -1: nothing, as /dev/null gives and takes it.
struct StandardStreams
{
    int input = -1;
    int output = -1;
    int errorOutput = -1;
};

/// Processor time of user and system together, in seconds.
double processorSecondsIn(const rusage& usage);

/// A process started in the cheapest way there is (posix_spawn, which does not copy this process),
/// so that the start of a peer's program costs no more than it must.
class SpawnedProcess
{
public:
    /// \param arguments   the program, looked up in PATH, and its arguments.
    /// \param environment "NAME=value"; with no entry, this process's own.
    /// Throws std::runtime_error when it cannot be started.
    explicit SpawnedProcess(const std::vector<std::string>& arguments, StandardStreams streams = {},
                            const std::vector<std::string>& environment = {});
    SpawnedProcess(const SpawnedProcess&) = delete;
    SpawnedProcess& operator=(const SpawnedProcess&) = delete;
    /// Kills the process if it still runs.
    ~SpawnedProcess();

    pid_t pid() const { return pid_; }

    /// Waits for the end. True: it exited with 0.
    bool succeeds();

    /// Whether it has ended; does not wait.
    bool hasEnded();

    /// Processor time that it and the children that it waited for used, in seconds; 0 before its
    /// end was noticed.
    double processorSeconds() const;

private:
    bool reap(int options);

    pid_t pid_ = -1;
    bool reaped_ = false;
    int status_ = 0;
    rusage usage_{};
};

} // namespace TarnisBench
