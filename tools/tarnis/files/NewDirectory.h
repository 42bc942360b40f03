#pragma once

#include <FileSystem/FileSystem2.h>

#include <optional>
#include <string>

namespace TarnisTool {

constexpr Utilities::Flags<FileSystem::PosixFilePermissionFlag> allOfTheOwner{0700U};

/// What has become of a new directory.
struct NewDirectory
{
    /// What was asked for, less the umask.
    Utilities::Flags<FileSystem::PosixFilePermissionFlag> permissions;
    /// Whether it has more for its owner, which the umask had taken away.
    bool isWidened = false;
};

/// Makes a directory that nobody can look into whom its permissions keep out, also where the server
/// does not look at what permissions it is made with. Its owner can do all that they say, whatever
/// the umask takes away.
/// \return empty when it cannot be made.
std::optional<NewDirectory>
makeNewDirectory(const FileSystem::FileSystem2& system, const std::string& path,
                 Utilities::Flags<FileSystem::PosixFilePermissionFlag> permissions);

} // namespace TarnisTool
