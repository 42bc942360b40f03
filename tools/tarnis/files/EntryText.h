#pragma once

#include <FileSystem/StorageSystemRecords.h>

#include <string>

namespace TarnisTool {

/// "file", "directory", "link", or "other" for a pipe, a socket or a device.
std::string kindOf(const FileSystem::StorageSystemFileInfo& info);

/// As `ls -l` has them: "drwxr-xr-x", with "?" for what is no file, directory or link.
std::string modeText(const FileSystem::StorageSystemFileInfo& info);

/// "0644".
std::string octalMode(const FileSystem::StorageSystemFileInfo& info);

} // namespace TarnisTool
