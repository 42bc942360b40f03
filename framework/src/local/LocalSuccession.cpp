#include "local/LocalSuccession.h"

#include "local/LocalAttributes.h"

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
bool setOwner(int file, const struct stat& now, const StorageSystemOwner& wanted)
{
    constexpr auto same = static_cast<uid_t>(-1);
    return (now.st_uid == wanted.user && now.st_gid == wanted.group) ||
           ::fchown(file, wanted.user, wanted.group) == 0 ||
           ::fchown(file, same, wanted.group) == 0;
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

bool succeedTo(int file, const std::optional<StorageSystemOwner>& owner,
               Utilities::Flags<PosixFilePermissionFlag> permissions)
{
    const auto now = attributesOfOpen(file);
    if (!now) {
        return false;
    }
    const bool hasItsGroup = owner && setOwner(file, *now, *owner);
    const auto wanted = hasItsGroup ? permissions : withoutOwnOfGroup(permissions);
    return setPermissions(file, *now, wanted.raw() & permissionBits);
}

} // namespace FileSystem
