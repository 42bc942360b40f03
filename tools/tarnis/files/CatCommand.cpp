#include "files/CatCommand.h"

#include "Failure.h"
#include "files/SinkFile.h"

#include <cerrno>
#include <cstring>

#include <poll.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

/// Whoever started us may have made the descriptor non-blocking.
bool waitUntilWritable()
{
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    return ::poll(&output, 1, -1) >= 0 || errno == EINTR;
}

void writeAll(const char* bytes, std::uint64_t size)
{
    while (size > 0) {
        const ssize_t count = ::write(STDOUT_FILENO, bytes, size);
        if (count >= 0) {
            bytes += count;
            size -= static_cast<std::uint64_t>(count);
        } else if (errno != EINTR && !(errno == EAGAIN && waitUntilWritable())) {
            throw Failure(FailureKind::LocalProblem, "cannot write to", "standard output",
                          std::strerror(errno));
        }
    }
}

} // namespace

CatCommand::CatCommand(CLI::App& program)
    : PathsCommand(program, "cat", "Write remote files to standard output")
{}

void CatCommand::workOn(RemotePlace& place, const std::string& path)
{
    using Mode = FileSystem::StorageSystemFileOpenModeFlag;
    const std::string id = fileIdOf(path);
    place.forgetFailures();
    if (place.system().directoryExists(id)) {
        place.fail("cannot read", id, "it is a directory");
    }
    place.forgetFailures();
    const auto file = place.system().fileOpen(id, Mode::Read);
    if (file == nullptr) {
        place.fail("cannot read", id);
    }
    SinkFile output([](const char* bytes, std::uint64_t size) {
        writeAll(bytes, size);
        return true;
    });
    std::uint64_t written = 0;
    std::uint64_t expected = 0;
    const auto progress = [&](std::uint64_t done, std::uint64_t total) {
        written = done;
        expected = total;
        return true;
    };
    if (!file->copy(output, progress)) {
        place.fail("cannot read", id);
    }
    // A file that has been cut since ends there; any other early end is not its own.
    if (written < expected && file->size() != written) {
        place.fail("cannot read", id, "it ended before its size");
    }
}

} // namespace TarnisTool
