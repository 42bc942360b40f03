#include "support/ScratchRoot.h"

#include "support/SystemError.h"

#include <array>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace TarnisTest {

namespace fs = std::filesystem;

namespace {

constexpr int kWatcherLifelineFd = 3;

// Reads the end of the lifeline when the process has gone, and removes what it left. All that waits
// and removes runs in the background of a shell that ends at once: who kills a program with its
// children does not find it. Servers of the program may die a moment later and write until then,
// so it tries again.
constexpr const char* kWatcherScript =
    "{ read -r line <&3;"
    " for try in 1 2 3 4 5 6 7 8 9 10; do"
    " chmod -R u+rwX -- \"$0\"; rm -rf -- \"$0\" && break; sleep 0.1;"
    " done; } &";

} // namespace

ScratchRoot::ScratchRoot()
    : path_(makeUniqueDirectory(fs::canonical(fs::temp_directory_path()) / "tarnis-test-"))
{
    // Servers that drop their privileges must get through to what they are shown, and tests that do
    // must get a directory of their own.
    if (::chmod(path_.c_str(), 01733) != 0) {
        throwErrno("chmod " + path_);
    }
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throwErrno("pipe2");
    }
    const UniqueFd readEnd(ends[0]);
    lifeline_.reset(ends[1]);
    startWatcher(readEnd.get());
}

// With nothing of the program's: its output, which somebody may read to its end, and its session,
// which a terminal may send signals to.
void ScratchRoot::startWatcher(int readEnd) const
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, readEnd, kWatcherLifelineFd);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
    }
    posix_spawn_file_actions_addclosefrom_np(&actions, kWatcherLifelineFd + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);

    std::array<std::string, 4> arguments{"sh", "-c", kWatcherScript, path_};
    std::array<char*, 5> argv{arguments[0].data(), arguments[1].data(), arguments[2].data(),
                              arguments[3].data(), nullptr};
    std::string searchPath = "PATH=/usr/bin:/bin";
    std::array<char*, 2> environment{searchPath.data(), nullptr};
    pid_t shell = -1;
    const int error =
        ::posix_spawn(&shell, "/bin/sh", &actions, &attributes, argv.data(), environment.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "cannot start the watcher");
    }
    while (::waitpid(shell, nullptr, 0) < 0 && errno == EINTR) {
    }
}

const ScratchRoot& ScratchRoot::ofThisProgram()
{
    // Lives until the process is gone, since destructors of other objects may still need it.
    static const auto* const root = new ScratchRoot;
    return *root;
}

std::string makeUniqueDirectory(const fs::path& pathAndPrefix)
{
    std::string path = pathAndPrefix.string() + "XXXXXX";
    if (::mkdtemp(path.data()) == nullptr) {
        throwErrno("mkdtemp " + path);
    }
    return path;
}

std::string makeScratchDirectory(std::string_view prefix)
{
    return makeUniqueDirectory(fs::path(ScratchRoot::ofThisProgram().path()) / prefix);
}

} // namespace TarnisTest
