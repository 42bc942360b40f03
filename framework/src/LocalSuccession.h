#pragma once

#include <FileSystem/StorageSystemFlags.h>
#include <Utilities/Flags.h>

#include <string>

namespace FileSystem {

// What an open file of this machine gets in the place of another. By its descriptor: its path may
// lead elsewhere meanwhile, and the superuser would give that away.

/// As StorageSystemFile::AttributeKeeper::narrow.
bool narrowPermissions(int file, Utilities::Flags<PosixFilePermissionFlag> permissions);

/// As StorageSystemFile::AttributeKeeper::set.
bool setPermissions(int file, Utilities::Flags<PosixFilePermissionFlag> permissions);

/// As StorageSystemFile::AttributeKeeper::succeed. Gives no permissions that what stands at the
/// path has not got by now. False where that is no file: what was to be replaced is gone.
bool succeedTo(int file, const std::string& path,
               Utilities::Flags<PosixFilePermissionFlag> permissions);

} // namespace FileSystem
