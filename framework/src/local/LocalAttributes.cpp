#include "local/LocalAttributes.h"

#include "SystemCall.h"

#include <cstdint>
#include <limits>

#include <fcntl.h>

namespace FileSystem {

namespace {

constexpr std::int64_t ticksPerSecond = 10'000'000;
constexpr std::int64_t nanosecondsPerTick = 100;
constexpr mode_t permissionBits = 0777;

} // namespace

std::optional<struct stat> readAttributes(int directory, const char* path)
{
    struct stat attributes = {};
    const int rc = retryInterrupted(
        [&] { return ::fstatat(directory, path, &attributes, AT_SYMLINK_NOFOLLOW); });
    return rc == 0 ? std::optional(attributes) : std::nullopt;
}

std::optional<struct stat> attributesOfOpen(int file)
{
    struct stat attributes = {};
    return ::fstat(file, &attributes) == 0 ? std::optional(attributes) : std::nullopt;
}

Utilities::Flags<PosixFilePermissionFlag> permissionsOf(mode_t mode) noexcept
{
    return Utilities::Flags<PosixFilePermissionFlag>(mode & permissionBits);
}

Utilities::Flags<StorageSystemFileTypeFlag> typeOfMode(mode_t mode) noexcept
{
    switch (mode & S_IFMT) {
    case S_IFREG:
        return StorageSystemFileTypeFlag::Regular;
    case S_IFDIR:
        return StorageSystemFileTypeFlag::Directory;
    case S_IFLNK:
        return StorageSystemFileTypeFlag::SymbolicLink | StorageSystemFileTypeFlag::Regular;
    default:
        return {};
    }
}

void setAttributes(StorageSystemFileInfo& info, const struct stat& attributes) noexcept
{
    info.type = typeOfMode(attributes.st_mode);
    info.size = static_cast<std::uint64_t>(attributes.st_size);
    info.modTime = toTimePoint(attributes.st_mtim);
    info.permissions = permissionsOf(attributes.st_mode);
}

StorageSystemAttributes toAttributes(const struct stat& now)
{
    constexpr mode_t specialBits = 07000;
    StorageSystemFileInfo info;
    setAttributes(info, now);
    StorageSystemAttributes attributes;
    attributes.type = S_ISLNK(now.st_mode) ? StorageSystemFileTypeFlag::SymbolicLink : info.type;
    attributes.size = info.size;
    attributes.modTime = info.modTime;
    attributes.permissions = info.permissions;
    attributes.specialBits = static_cast<std::uint32_t>(now.st_mode & specialBits);
    attributes.owner = StorageSystemOwner{now.st_uid, now.st_gid};
    attributes.identity = StorageSystemIdentity{now.st_dev, now.st_ino};
    return attributes;
}

StorageSystemTimePoint toTimePoint(const timespec& moment) noexcept
{
    constexpr std::int64_t lastSecond =
        std::numeric_limits<std::int64_t>::max() / ticksPerSecond - 1;
    if (moment.tv_sec > lastSecond) {
        return StorageSystemTimePoint::max();
    }
    if (moment.tv_sec < -lastSecond) {
        return StorageSystemTimePoint::min();
    }
    // The nanoseconds count forwards from the second, before 1970 as well.
    return StorageSystemTimePoint(StorageSystemTimePoint::duration(
        moment.tv_sec * ticksPerSecond + moment.tv_nsec / nanosecondsPerTick));
}

timespec toTimespec(StorageSystemTimePoint time) noexcept
{
    const std::int64_t ticks = time.time_since_epoch().count();
    std::int64_t seconds = ticks / ticksPerSecond;
    std::int64_t rest = ticks % ticksPerSecond;
    if (rest < 0) {
        --seconds;
        rest += ticksPerSecond;
    }
    timespec moment = {};
    moment.tv_sec = seconds;
    moment.tv_nsec = rest * nanosecondsPerTick;
    return moment;
}

} // namespace FileSystem
