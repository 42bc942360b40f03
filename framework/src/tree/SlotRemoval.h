#pragma once

#include <string>

namespace FileSystem {

class StorageSystem;

/// Removes a directory with everything below it, as the operations do that are asked for it: what
/// is not removed after the first failure stays. False: that, nothing there, something else there
/// (a link to a directory included).
bool removeForSlot(const StorageSystem& system, const std::string& path);

} // namespace FileSystem
