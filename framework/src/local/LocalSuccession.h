#pragma once

#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <optional>

namespace FileSystem {

// What an open file of this machine gets in the place of another. By its descriptor: its path may
// lead elsewhere meanwhile, and the superuser would give that away.

/// As StorageSystemFile::AttributeKeeper::narrow.
bool narrowPermissions(int file, Utilities::Flags<PosixFilePermissionFlag> permissions);

/// As StorageSystemFile::AttributeKeeper::set.
bool setPermissions(int file, Utilities::Flags<PosixFilePermissionFlag> permissions);

/// As StorageSystemFile::AttributeKeeper::succeed.
bool succeedTo(int file, const std::optional<StorageSystemOwner>& owner,
               Utilities::Flags<PosixFilePermissionFlag> permissions);

} // namespace FileSystem
