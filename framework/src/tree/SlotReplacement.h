#pragma once

#include <optional>
#include <string>

namespace FileSystem {

class StorageSystem;
struct StorageSystemFileInfo;

/// Gives a file or a link another path for the operation that does that. A file or a link at the
/// new path makes room, in one atomic step where the system can. It is back when the path cannot be
/// taken after all. Where it cannot be removed in the end, that is no failure: everything has its
/// name. What is to get the new path may have several names, that one among them.
/// \param file     what stands at the path.
/// \param replaced what stands at the new path, if anything.
bool replaceForSlot(const StorageSystem& system, const std::string& path,
                    const StorageSystemFileInfo& file, const std::string& newPath,
                    const std::optional<StorageSystemFileInfo>& replaced);

} // namespace FileSystem
