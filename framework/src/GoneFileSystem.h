#pragma once

#include <FileSystem/FileSystem2.h>

namespace FileSystem {

/// What an open file that has outlived its storage system gives in that one's place: an invalid
/// system, on which every operation fails.
///
/// Its kind is StorageSystemType::None, so that nobody takes it for a class of his own.
const FileSystem2& goneFileSystem();

} // namespace FileSystem
