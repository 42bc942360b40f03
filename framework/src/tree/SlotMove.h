#pragma once

#include <string>

namespace FileSystem {

class StorageSystem;

/// Moves for the operations that move one file or one tree, where the system does not rename it.
/// False: nothing has moved; or not all of the original could be removed, which is where it was,
/// and the copy is complete.
bool moveByCopyForSlot(const StorageSystem& system, const std::string& path,
                       const std::string& newPath);

} // namespace FileSystem
