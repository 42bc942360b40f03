#include "files/StreamedFile.h"

#include "Failure.h"
#include "files/StreamTarget.h"

#include <FileSystem/FileStreams.h>

#include <cstddef>
#include <cstring>

namespace TarnisTool {

bool streamFile(Place& place, const std::string& id, const Stream& stream,
                const std::function<bool(std::uint64_t done)>& goesOn)
{
    std::uint64_t written = 0;
    bool isStopped = false;
    const auto ask = [&] {
        isStopped = isStopped || (goesOn && !goesOn(written));
        return !isStopped;
    };
    const auto taker = [&](const char* bytes, std::size_t size) {
        const int error = writeAll(stream.descriptor, bytes, size, ask);
        if (error != 0 && !isStopped) {
            throw Failure(FailureKind::LocalProblem, "cannot write to", stream.name,
                          std::strerror(error));
        }
        return error == 0;
    };
    const auto progress = [&](std::uint64_t done) {
        written = done;
        return ask();
    };
    if (readFile(place.system(), id, taker, progress)) {
        return true;
    }
    if (!isStopped) {
        place.failBecause("cannot read", id, FileSystem::Failure::last());
    }
    return false;
}

} // namespace TarnisTool
