#include "transfer/ClientRun.h"

#include "support/Interleaved.h"
#include "support/PeakMemory.h"
#include "support/ProcessTree.h"
#include "support/Require.h"
#include "support/SpawnedProcess.h"
#include "support/SystemError.h"
#include "support/UniqueFd.h"

#include <algorithm>
#include <csignal>
#include <map>
#include <numeric>
#include <thread>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace TarnisBench {

namespace {

using Clock = std::chrono::steady_clock;

TarnisTest::UniqueFd openForWriting(const std::string& path)
{
    constexpr mode_t mode = 0600;
    TarnisTest::UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!file.isOpen()) {
        TarnisTest::throwErrno("opening " + path);
    }
    return file;
}

/// Looks at a process and its descendants from time to time and remembers how much memory each of
/// them has occupied.
class FamilyMemory
{
public:
    explicit FamilyMemory(pid_t head) { peaks_[head] = 0; }

    void look()
    {
        if (Clock::now() >= nextSearch_) {
            for (const pid_t pid : TarnisTest::descendantsOf(peaks_.begin()->first)) {
                peaks_.emplace(pid, 0);
            }
            nextSearch_ = Clock::now() + betweenSearches;
        }
        for (auto& [pid, peak] : peaks_) {
            peak = std::max(peak, peakMemoryKiB(pid));
        }
    }

    double total() const
    {
        return std::accumulate(peaks_.begin(), peaks_.end(), 0.0, [](double sum, const auto& each) {
            return sum + static_cast<double>(each.second);
        });
    }

private:
    static constexpr std::chrono::milliseconds betweenSearches{50};

    std::map<pid_t, long> peaks_;
    Clock::time_point nextSearch_{};
};

/// The children of this process that it did not start itself: those that a client left behind.
class AdoptedChildren
{
public:
    AdoptedChildren()
    {
        require(::prctl(PR_SET_CHILD_SUBREAPER, 1) == 0, "adopting orphans");
        own_ = TarnisTest::childrenOf(::getpid());
    }

    /// Ends them; the processor time that they used.
    double end()
    {
        for (const pid_t pid : TarnisTest::childrenOf(::getpid())) {
            if (!isOwn(pid)) {
                ::kill(pid, SIGKILL);
                reap(pid);
            }
        }
        for (pid_t pid = nextEnded(); pid > 0 && !isOwn(pid); pid = nextEnded()) {
            reap(pid);
        }
        return processorSeconds_;
    }

private:
    bool isOwn(pid_t pid) const { return std::find(own_.begin(), own_.end(), pid) != own_.end(); }

    static pid_t nextEnded()
    {
        siginfo_t info{};
        return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 ? info.si_pid : 0;
    }

    void reap(pid_t pid)
    {
        rusage usage{};
        if (::wait4(pid, nullptr, 0, &usage) == pid) {
            processorSeconds_ += processorSecondsIn(usage);
        }
    }

    std::vector<pid_t> own_;
    double processorSeconds_ = 0;
};

/// False: the limit passed first.
bool awaitEnd(SpawnedProcess& process, FamilyMemory& memory, Clock::time_point deadline)
{
    constexpr std::chrono::milliseconds betweenLooks{2};
    while (!process.hasEnded()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        memory.look();
        std::this_thread::sleep_for(betweenLooks);
    }
    return true;
}

void killFamily(pid_t head)
{
    ::kill(head, SIGSTOP);
    TarnisTest::signalDescendants(head, SIGKILL);
    ::kill(head, SIGKILL);
}

} // namespace

ClientRun runClient(const ClientCommand& command, std::chrono::seconds limit)
{
    const auto output = openForWriting(command.outputFile);
    const auto errorOutput = openForWriting(command.errorFile);
    StandardStreams streams;
    streams.output = output.get();
    streams.errorOutput = errorOutput.get();

    AdoptedChildren adopted;
    ClientRun run;
    const auto time = timeOf([&] {
        SpawnedProcess client(command.arguments, streams, command.environment);
        FamilyMemory memory(client.pid());
        const bool ended = awaitEnd(client, memory, Clock::now() + limit);
        if (!ended) {
            killFamily(client.pid());
        }
        const bool succeeded = client.succeeds();
        run.end = !ended      ? ClientRun::End::Stopped
                  : succeeded ? ClientRun::End::Succeeded
                              : ClientRun::End::Failed;
        run.processorSeconds = client.processorSeconds();
        run.peakKiB = memory.total();
    });
    run.seconds = std::chrono::duration<double>(time).count();
    run.processorSeconds += adopted.end();
    return run;
}

} // namespace TarnisBench
