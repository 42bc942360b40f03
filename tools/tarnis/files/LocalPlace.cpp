#include "files/LocalPlace.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
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

void LocalPlace::forgetFailures()
{
    FileSystem::LocalFileSystem::clearLastError();
}

std::string LocalPlace::lastReason()
{
    return FileSystem::LocalFileSystem::getLastError();
}

} // namespace TarnisTool
