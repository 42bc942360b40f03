#include "support/SpawnedProcess.h"

#include "support/Require.h"

#include <algorithm>
#include <csignal>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace TarnisBench {

namespace {

/// What the child does to its descriptors before it becomes the program.
class FileActions
{
public:
    explicit FileActions(const StandardStreams& streams)
    {
        ::posix_spawn_file_actions_init(&actions_);
        give(STDIN_FILENO, streams.input, O_RDONLY);
        give(STDOUT_FILENO, streams.output, O_WRONLY);
        give(STDERR_FILENO, streams.errorOutput, O_WRONLY);
    }

    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }

    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    void give(int target, int descriptor, int mode)
    {
        if (descriptor < 0) {
            ::posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", mode, 0);
        } else {
            ::posix_spawn_file_actions_adddup2(&actions_, descriptor, target);
        }
    }

    posix_spawn_file_actions_t actions_{};
};

/// As exec takes them; lends the strings.
std::vector<char*> pointersTo(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers(texts.size() + 1, nullptr);
    // The C interface has no const; nobody writes to it.
    std::transform(texts.begin(), texts.end(), pointers.begin(),
                   [](const std::string& text) { return const_cast<char*>(text.c_str()); });
    return pointers;
}

double secondsOf(const timeval& time)
{
    constexpr double microsecond = 1e-6;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * microsecond;
}

} // namespace

double processorSecondsIn(const rusage& usage)
{
    return secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
}

SpawnedProcess::SpawnedProcess(const std::vector<std::string>& arguments, StandardStreams streams,
                               const std::vector<std::string>& environment)
{
    const FileActions actions(streams);
    const auto argv = pointersTo(arguments);
    const auto envp = pointersTo(environment);
    char* const* const given = environment.empty() ? environ : envp.data();
    require(::posix_spawnp(&pid_, argv.front(), actions.get(), nullptr, argv.data(), given) == 0,
            "starting " + arguments.front());
}

SpawnedProcess::~SpawnedProcess()
{
    if (!reaped_) {
        ::kill(pid_, SIGKILL);
        reap(0);
    }
}

bool SpawnedProcess::succeeds()
{
    reap(0);
    return WIFEXITED(status_) && WEXITSTATUS(status_) == 0;
}

bool SpawnedProcess::hasEnded()
{
    return reap(WNOHANG);
}

double SpawnedProcess::processorSeconds() const
{
    return processorSecondsIn(usage_);
}

bool SpawnedProcess::reap(int options)
{
    if (!reaped_) {
        reaped_ = ::wait4(pid_, &status_, options, &usage_) == pid_;
    }
    return reaped_;
}

} // namespace TarnisBench
