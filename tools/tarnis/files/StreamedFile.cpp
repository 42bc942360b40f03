#include "files/StreamedFile.h"

#include "Failure.h"
#include "files/SinkFile.h"
#include "files/StreamTarget.h"

#include <cerrno>
#include <cstring>

namespace TarnisTool {

namespace {

/// How far the writing of a file has come.
struct Passage
{
    std::uint64_t written = 0;
    std::uint64_t expected = 0;
    bool isStopped = false;
};

} // namespace

bool streamFile(Place& place, const std::string& id, const Stream& stream,
                const std::function<bool(std::uint64_t done)>& goesOn)
{
    const auto file = place.system().fileOpen(id, FileSystem::StorageSystemFileOpenModeFlag::Read);
    if (file == nullptr) {
        place.failBecause("cannot read", id, FileSystem::Failure::last());
    }
    Passage passage;
    const auto ask = [&] {
        passage.isStopped = passage.isStopped || (goesOn && !goesOn(passage.written));
        return !passage.isStopped;
    };
    SinkFile output([&](const char* bytes, std::uint64_t size) {
        const int error = writeAll(stream.descriptor, bytes, size, ask);
        if (error != 0 && !passage.isStopped) {
            throw Failure(FailureKind::LocalProblem, "cannot write to", stream.name,
                          std::strerror(error));
        }
        return error == 0;
    });
    const auto progress = [&](std::uint64_t done, std::uint64_t total) {
        passage.written = done;
        passage.expected = total;
        return ask();
    };
    if (!file->copy(output, progress)) {
        if (passage.isStopped) {
            return false;
        }
        place.failBecause("cannot read", id, FileSystem::Failure::last());
    }
    // A file that has been cut since ends there; any other early end is not its own.
    if (passage.written < passage.expected && file->size() != passage.written) {
        place.refuse("cannot read", id, "it ended before its size");
    }
    return true;
}

} // namespace TarnisTool
