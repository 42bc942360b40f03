#pragma once

#include <FileSystem/StorageSystemRecords.h>

#include <string>

namespace FileSystem {

class FileSystem2;

/// Moves a directory where it cannot be renamed: copies it with permissions and times, then removes
/// of the original exactly what was copied, so that what was not is never lost.
/// False: it could not be copied, and the target is gone again; or the original could not be
/// removed, and both stand.
bool moveTreeByCopy(const FileSystem2& system, const StorageSystemFileInfo& source,
                    const std::string& path, const std::string& newPath);

} // namespace FileSystem
