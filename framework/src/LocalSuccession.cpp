#include "LocalSuccession.h"

#include "LocalAttributes.h"
#include "SystemCall.h"

#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FileSystem {

namespace {

constexpr mode_t permissionBits = 0777;

bool setPermissions(int file, const struct stat& now, mode_t wanted)
{
    return (now.st_mode & permissionBits) == wanted || ::fchmod(file, wanted) == 0;
}

/// The owner and the group where that is allowed, or else the group.
bool setOwner(int file, const struct stat& now, const struct stat& wanted)
{
    constexpr uid_t same = static_cast<uid_t>(-1);
    return (now.st_uid == wanted.st_uid && now.st_gid == wanted.st_gid) ||
           ::fchown(file, wanted.st_uid, wanted.st_gid) == 0 ||
           ::fchown(file, same, wanted.st_gid) == 0;
}

} // namespace

bool setPermissions(int file, Utilities::Flags<PosixFilePermissionFlag> permissions)
{
    const auto now = attributesOfOpen(file);
    return now && setPermissions(file, *now, permissions.raw() & permissionBits);
}

bool narrowPermissions(int file, Utilities::Flags<PosixFilePermissionFlag> permissions)
{
    const auto now = attributesOfOpen(file);
    return now && setPermissions(file, *now, now->st_mode & permissions.raw() & permissionBits);
}

bool succeedTo(int file, const std::string& path,
               Utilities::Flags<PosixFilePermissionFlag> permissions)
{
    const auto former = readAttributes(AT_FDCWD, systemPath(path));
    const auto now = attributesOfOpen(file);
    if (!former || !now || !S_ISREG(former->st_mode)) {
        return false;
    }
    const bool hasItsGroup = setOwner(file, *now, *former);
    const auto atMost = permissions & permissionsOf(former->st_mode);
    const auto wanted = hasItsGroup ? atMost : withoutOwnOfGroup(atMost);
    return setPermissions(file, *now, wanted.raw() & permissionBits);
}

} // namespace FileSystem
