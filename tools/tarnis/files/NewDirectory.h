#pragma once

#include <FileSystem/FileSystem2.h>

#include <optional>
#include <string>

namespace TarnisTool {

/// Makes a directory that nobody can look into whom its permissions keep out, also where the server
/// does not look at what permissions it is made with.
/// \return the permissions that it has got, which may be fewer; empty when it cannot be made.
std::optional<Utilities::Flags<FileSystem::PosixFilePermissionFlag>>
makeNewDirectory(const FileSystem::FileSystem2& system, const std::string& path,
                 Utilities::Flags<FileSystem::PosixFilePermissionFlag> permissions);

} // namespace TarnisTool
