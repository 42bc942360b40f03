#pragma once

#include <string_view>

namespace Tarnis {

/// What a server offers beyond the protocol: a name, and as a rule a version in decimal digits.
struct SFTPExtension
{
    std::string_view name;
    std::string_view data;
};

constexpr bool operator==(const SFTPExtension& left, const SFTPExtension& right) noexcept
{
    return left.name == right.name && left.data == right.data;
}

constexpr bool operator!=(const SFTPExtension& left, const SFTPExtension& right) noexcept
{
    return !(left == right);
}

// Those that there are requests for, as a server offers them that understands these requests.
inline constexpr SFTPExtension posixRenameExtension{"posix-rename@openssh.com", "1"};
inline constexpr SFTPExtension statvfsExtension{"statvfs@openssh.com", "2"};
inline constexpr SFTPExtension fsyncExtension{"fsync@openssh.com", "1"};
inline constexpr SFTPExtension hardlinkExtension{"hardlink@openssh.com", "1"};
inline constexpr SFTPExtension lsetstatExtension{"lsetstat@openssh.com", "1"};
inline constexpr SFTPExtension copyDataExtension{"copy-data", "1"};
inline constexpr SFTPExtension limitsExtension{"limits@openssh.com", "1"};

} // namespace Tarnis
