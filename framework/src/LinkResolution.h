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

} // namespace FileSystem
