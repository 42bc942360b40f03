#pragma once

#include <FileSystem/StorageSystemFlags.h>

#include <string>

namespace TarnisTool {

/// The permissions after a change, which is octal ("644", "0755") or symbolic ("u+x", "go-rwx",
/// "a=r,u+w"). Throws UsageError for what is neither.
Utilities::Flags<FileSystem::PosixFilePermissionFlag>
changedPermissions(const std::string& change,
                   Utilities::Flags<FileSystem::PosixFilePermissionFlag> permissions);

} // namespace TarnisTool
