#pragma once

#include "posix/FileDescriptor.h"

#include <FileSystem/StorageSystemRecords.h>

#include <optional>
#include <string>

#include <sys/stat.h>

/// What is done with one entry of this machine: of the directory that is open (AT_FDCWD for the
/// current one) by a name or a path from there, without following a link in the last component
/// unless it says so. Where they fail, the failure is noted.
namespace FileSystem::LocalCalls {

mode_t modeOf(Utilities::Flags<PosixFilePermissionFlag> permissions) noexcept;

/// The set-ID and sticky bits of a directory, which say what becomes of its entries and are not
/// among the permissions that are asked for; none of anything else.
mode_t specialBitsOfDirectory(mode_t mode) noexcept;

/// Opens a regular file, through a link as well unless the flags say O_NOFOLLOW: Changed then.
/// Nothing else is opened, not even to be looked at: that alone does something to a device, and
/// ends what the reader of a pipe waits for. \param flags of open(2).
Posix::FileDescriptor openFile(int directory, const char* path, int flags, mode_t permissions);

/// Renames where nothing stands.
bool rename(int directory, const char* path, int newDirectory, const char* newPath);

/// What a link says.
std::optional<std::string> readLink(int directory, const char* path);

/// Fails, and changes nothing, where the file system does not know such a time.
bool setModTime(int directory, const char* path, StorageSystemTimePoint time);

/// Whether a regular file is this user's, and has no other name: nobody else can have put it there
/// with something of ours behind it. Notes no failure.
bool isOwnFile(const std::string& path);

} // namespace FileSystem::LocalCalls
