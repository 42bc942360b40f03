#include "sftp/SFTPAttributes.h"

#include <chrono>

namespace Tarnis {

using FileSystem::PosixFilePermissionFlag;
using FileSystem::StorageSystemFileInfo;
using FileSystem::StorageSystemFileTypeFlag;
using FileSystem::StorageSystemTimePoint;

namespace {

constexpr std::uint32_t linkBits = linkKind;
constexpr std::uint32_t directoryBit = 0x4000;
constexpr std::uint32_t regularBit = 0x8000;
constexpr std::uint32_t permissionBits = 0x1FF;

constexpr std::int64_t ticksPerSecond = 10'000'000;
constexpr std::int64_t nanosecondsPerTick = 100;

bool hasAll(std::uint32_t mode, std::uint32_t bits) noexcept
{
    return (mode & bits) == bits;
}

} // namespace

bool hasDirectoryBit(std::uint32_t mode) noexcept
{
    return hasAll(mode, directoryBit);
}

bool hasPermissions(const sftp_attributes_struct& attributes,
                    Utilities::Flags<PosixFilePermissionFlag> wanted) noexcept
{
    const std::uint32_t bits = permissionBits | (wanted.raw() & stickyBit);
    return (attributes.flags & SSH_FILEXFER_ATTR_PERMISSIONS) != 0 &&
           ((attributes.permissions ^ wanted.raw()) & bits) == 0;
}

bool isLinkMode(std::uint32_t mode) noexcept
{
    return (mode & kindBits) == linkBits;
}

Utilities::Flags<StorageSystemFileTypeFlag> fileTypeOf(std::uint32_t mode) noexcept
{
    Utilities::Flags<StorageSystemFileTypeFlag> type;
    if (hasAll(mode, linkBits)) {
        type |= StorageSystemFileTypeFlag::SymbolicLink;
    }
    if (hasAll(mode, directoryBit)) {
        type |= StorageSystemFileTypeFlag::Directory;
    }
    if (hasAll(mode, regularBit)) {
        type |= StorageSystemFileTypeFlag::Regular;
    }
    return type;
}

StorageSystemTimePoint modificationTimeOf(const sftp_attributes_struct& attributes) noexcept
{
    const std::int64_t seconds = attributes.mtime;
    const std::int64_t nanoseconds = attributes.mtime_nseconds;
    return StorageSystemTimePoint(StorageSystemTimePoint::duration(
        seconds * ticksPerSecond + nanoseconds / nanosecondsPerTick));
}

void describe(const sftp_attributes_struct& attributes, StorageSystemFileInfo& info) noexcept
{
    info.type = fileTypeOf(attributes.permissions);
    info.size = attributes.size;
    info.modTime = modificationTimeOf(attributes);
    info.permissions =
        Utilities::Flags<PosixFilePermissionFlag>(attributes.permissions & permissionBits);
}

SFTPTime sftpTimeOf(StorageSystemTimePoint time) noexcept
{
    const std::int64_t ticks = time.time_since_epoch().count();
    // The ticks of the second first: all of them times 100 need not fit.
    const std::int64_t nanoseconds = ticks % ticksPerSecond * nanosecondsPerTick;
    return {static_cast<std::uint64_t>(ticks / ticksPerSecond),
            static_cast<std::uint32_t>(nanoseconds)};
}

} // namespace Tarnis
