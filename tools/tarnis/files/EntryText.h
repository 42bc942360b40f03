#pragma once

#include <FileSystem/StorageSystemRecords.h>

#include <cstdint>
#include <string>

namespace TarnisTool {

/// "file", "directory", "link", or "other" for a pipe, a socket or a device.
std::string kindOf(const FileSystem::StorageSystemFileInfo& info);

/// As `ls -l` has them: "drwxr-xr-x", with "?" for what is no file, directory or link, and "s" and
/// "t" in the places of execute bits for set-ID and sticky bits.
/// \param mode the permission bits, twelve or nine of them.
std::string modeText(const FileSystem::StorageSystemFileInfo& info, std::uint32_t mode);

/// "0644".
std::string octalMode(std::uint32_t mode);

} // namespace TarnisTool
