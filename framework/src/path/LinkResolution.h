#pragma once

#include <FileSystem/StorageSystemFlags.h>
#include <Utilities/Flags.h>

#include <optional>
#include <string>

namespace FileSystem {

class StorageSystem;

/// Where a chain of symbolic links ends.
struct LinkEnd
{
    std::string path;
    /// Empty: nothing is there, or it cannot be told.
    std::optional<Utilities::Flags<StorageSystemFileTypeFlag>> type;
};

/// Follows the symbolic link at `link`, and any that it leads to. Empty: no link there, one cannot
/// be read, or they are more than 40, as when they lead in a circle.
std::optional<LinkEnd> followLinks(const StorageSystem& system, const std::string& link);

/// The path without links and ".." on the way: every symbolic link in it is followed, what does not
/// exist is taken as it stands. Empty: a link cannot be read, or they are more than 40.
std::optional<std::string> resolveLinks(const StorageSystem& system, const std::string& path);

/// Where a path leads, from the root of the system on and without links on the way, so that two can
/// be compared: a relative one only where the system cannot tell where it starts. Empty: it cannot
/// be told, as for a path above the directory of relative ones, or that directory itself, in such a
/// system.
std::optional<std::string> placeOf(const StorageSystem& system, const std::string& path);

/// Whether the two lead to one place of a system. Empty: it cannot be told.
std::optional<bool> isOnePlace(const StorageSystem& system, const std::string& path,
                               const std::string& otherPath);

} // namespace FileSystem
