#include "files/OwnFile.h"

#include <optional>

#include <sys/stat.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

std::optional<struct stat> statusOf(const std::string& path)
{
    struct stat status = {};
    return ::lstat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

} // namespace

bool isOwnFile(const std::string& path)
{
    const auto status = statusOf(path);
    return status && S_ISREG(status->st_mode) && status->st_uid == ::geteuid() &&
           status->st_nlink == 1;
}

bool areOfOneGroup(const std::string& first, const std::string& second)
{
    const auto one = statusOf(first);
    const auto other = statusOf(second);
    return one && other && one->st_gid == other->st_gid;
}

} // namespace TarnisTool
