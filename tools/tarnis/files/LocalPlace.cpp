#include "files/LocalPlace.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

/// Why the system would not let us; empty where it would.
std::string accessProblem(const std::string& path, int mode)
{
    return ::access(path.c_str(), mode) == 0 ? std::string() : std::strerror(errno);
}

} // namespace

std::string LocalPlace::readingProblem(const std::string& path)
{
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0) {
        return std::strerror(errno);
    }
    if (S_ISLNK(status.st_mode)) {
        return {};
    }
    return accessProblem(path, S_ISDIR(status.st_mode) ? R_OK | X_OK : R_OK);
}

std::string LocalPlace::writingProblem(const std::string& path)
{
    const std::string problem = Place::writingProblem(path);
    if (!problem.empty()) {
        return problem;
    }
    const std::string parent = system_.pathParentId(path);
    const std::string directory = parent.empty() ? "." : parent;
    const std::string refusal = accessProblem(directory, W_OK | X_OK);
    struct statvfs volume = {};
    const bool isFull =
        ::statvfs(directory.c_str(), &volume) == 0 && volume.f_blocks > 0 && volume.f_bavail == 0;
    return refusal.empty() && isFull ? std::strerror(ENOSPC) : refusal;
}

} // namespace TarnisTool
