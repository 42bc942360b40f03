#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/StorageSystemFlags.h>
#include <Utilities/Flags.h>

namespace FileSystem {

/// The flags of open(2) for an open mode: O_RDONLY, O_WRONLY or O_RDWR by Read and Write (neither
/// reads), and O_APPEND, O_CREAT, O_TRUNC and O_EXCL. Append alone, without Read or Write, writes.
FILESYSTEM_EXPORT int
storageSystemFileOpenModeToPosixMode(Utilities::Flags<StorageSystemFileOpenModeFlag> mode) noexcept;

} // namespace FileSystem
