#pragma once

#include <FileSystem/StorageSystemFlags.h>
#include <Utilities/Flags.h>

#include <string>

namespace FileSystem {

class StorageSystem;

// What a path stands for, as far as whoever copies or removes it must know. A "no" is told as the
// failure, with the path as its entry.

/// Whether what has this type can be copied: a regular file or a link. Otherwise IsDirectory, or
/// NotCopyable for a pipe, a socket or a device.
bool isFileOrLink(const StorageSystem& system, const std::string& path,
                  Utilities::Flags<StorageSystemFileTypeFlag> type);

/// Whether what has this type can be replaced: as isFileOrLink(), and NotCopyable for a link that
/// leads to what is neither a file nor a directory. Others write through such a link, as through
/// the names of the standard streams.
bool isReplaceable(const StorageSystem& system, const std::string& path,
                   Utilities::Flags<StorageSystemFileTypeFlag> type);

/// Whether what has the type of a directory is one: over SFTP, a block device has that type too.
/// NotCopyable otherwise. Where the system does not tell it passes for a directory.
bool isDirectoryItself(const StorageSystem& system, const std::string& path);

} // namespace FileSystem
