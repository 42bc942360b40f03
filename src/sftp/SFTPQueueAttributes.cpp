#include "sftp/SFTPQueueAttributes.h"

#include "sftp/SFTPAttributes.h"

#include <limits>

namespace Tarnis {

using FileSystem::StorageSystemAttributes;
using FileSystem::StorageSystemFileTypeFlag;
using FileSystem::StorageSystemTimePoint;

namespace {

constexpr std::uint32_t regularKind = 0x8000;
constexpr std::uint32_t permissionBits = 0777;
constexpr std::uint32_t specialBits = 07000;

Utilities::Flags<StorageSystemFileTypeFlag> typeOfKind(std::uint32_t kind) noexcept
{
    switch (kind) {
    case regularKind:
        return StorageSystemFileTypeFlag::Regular;
    case directoryKind:
        return StorageSystemFileTypeFlag::Directory;
    case linkKind:
        return StorageSystemFileTypeFlag::SymbolicLink;
    default:
        return {};
    }
}

} // namespace

std::optional<SFTPFileAttributes> attributesIn(const SFTPAnswer& answer)
{
    return !answer.isLost && answer.type == SFTPPacketType::Attributes
               ? decodeAttributes(answer.fields)
               : std::nullopt;
}

StorageSystemAttributes attributesOf(const SFTPFileAttributes& told) noexcept
{
    StorageSystemAttributes attributes;
    attributes.size = told.size;
    if (told.owner) {
        attributes.owner = FileSystem::StorageSystemOwner{told.owner->user, told.owner->group};
    }
    if (told.times) {
        attributes.modTime = StorageSystemTimePoint(std::chrono::seconds(told.times->modification));
    }
    if (told.permissions) {
        attributes.permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>(
            *told.permissions & permissionBits);
        attributes.specialBits = *told.permissions & specialBits;
        if ((*told.permissions & kindBits) != 0) {
            attributes.type = typeOfKind(*told.permissions & kindBits);
        }
    }
    return attributes;
}

SFTPFileAttributes attributesToSend(const StorageSystemAttributes& wanted) noexcept
{
    SFTPFileAttributes sent;
    sent.size = wanted.size;
    if (wanted.owner) {
        sent.owner = SFTPFileOwner{wanted.owner->user, wanted.owner->group};
    }
    if (wanted.permissions) {
        sent.permissions = wanted.permissions->raw() | wanted.specialBits.value_or(0);
    }
    return sent;
}

std::optional<std::uint32_t> secondsOf(StorageSystemTimePoint time) noexcept
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
    if (seconds < 0 || seconds > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(seconds);
}

bool areKept(const StorageSystemAttributes& wanted, const SFTPFileAttributes& told) noexcept
{
    const bool hasPermissions = !wanted.permissions || !told.permissions ||
                                (*told.permissions & permissionBits) == wanted.permissions->raw();
    const bool hasSpecialBits = !wanted.permissions || !wanted.specialBits || !told.permissions ||
                                (*told.permissions & specialBits) == *wanted.specialBits;
    const bool hasOwner =
        !wanted.owner || !told.owner ||
        (told.owner->user == wanted.owner->user && told.owner->group == wanted.owner->group);
    const bool hasTime =
        !wanted.modTime || (told.times && told.times->modification == secondsOf(*wanted.modTime));
    return hasPermissions && hasSpecialBits && hasOwner && hasTime;
}

} // namespace Tarnis
