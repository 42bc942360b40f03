#include "files/Place.h"

#include "Failure.h"

#include <algorithm>

namespace TarnisTool {

std::string joinReasons(const std::string& first, const std::string& second)
{
    if (first.empty() || first == second) {
        return second;
    }
    if (second.empty()) {
        return first;
    }
    return first + " (" + second + ")";
}

TargetKind Place::kindOf(const std::string& path) const
{
    static_cast<void>(path);
    return TargetKind::Ordinary;
}

std::string Place::readingProblem(const std::string& path)
{
    static_cast<void>(path);
    return {};
}

std::string Place::writingProblem(const std::string& path)
{
    if (system().directoryExists(path, false)) {
        return "a directory stands there";
    }
    const std::string parent = system().pathParentId(path);
    if (!parent.empty() && !system().directoryExists(parent)) {
        return "its directory does not exist";
    }
    return {};
}

FileSystem::StorageSystemFileInfo Place::find(const std::string& path)
{
    forgetFailures();
    auto info = system().fileInfo(path);
    if (!info) {
        fail("cannot find", path, readingProblem(path));
    }
    return std::move(*info);
}

std::vector<FileSystem::StorageSystemFileInfo> Place::list(const std::string& directory)
{
    forgetFailures();
    auto entries = system().directoryReadFully(directory);
    if (!entries) {
        fail("cannot list", directory, readingProblem(directory));
    }
    std::sort(entries->begin(), entries->end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    return *std::move(entries);
}

void Place::fail(const std::string& what, const std::string& path, const std::string& hint)
{
    const std::string reason = lastReason();
    requireAlive();
    throw Failure(FailureKind::FileProblem, what, display(path), joinReasons(hint, reason));
}

} // namespace TarnisTool
