#pragma once

#include <FileSystem/StorageSystemQueue.h>
#include <FileSystem/StorageSystemRecords.h>

#include <ctime>
#include <optional>
#include <string>

#include <sys/stat.h>

namespace FileSystem {

/// What stands at `path` below the directory open as `directory` (AT_FDCWD for the current one), a
/// link itself included. Empty, and errno is set, when it cannot be told.
std::optional<struct stat> readAttributes(int directory, const char* path);

/// What is open under the descriptor. Empty, and errno is set, when it cannot be told.
std::optional<struct stat> attributesOfOpen(int file);

/// The nine permission bits of a mode.
Utilities::Flags<PosixFilePermissionFlag> permissionsOf(mode_t mode) noexcept;

/// The kind by the file type bits of a mode.
Utilities::Flags<StorageSystemFileTypeFlag> typeOfMode(mode_t mode) noexcept;

/// Kind, size, time, permissions into `info`. The size is what the system says, for a
/// directory too.
void setAttributes(StorageSystemFileInfo& info, const struct stat& attributes) noexcept;

/// All that is known of an entry.
StorageSystemAttributes toAttributes(const struct stat& now);

/// The tick that holds the moment; the nearest one there is for a moment beyond the ticks.
StorageSystemTimePoint toTimePoint(const timespec& moment) noexcept;

timespec toTimespec(StorageSystemTimePoint time) noexcept;

} // namespace FileSystem
