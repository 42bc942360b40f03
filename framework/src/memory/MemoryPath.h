#pragma once

#include "memory/MemoryContent.h"

#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

/// What stands at one path of a MemoryTree, or at several, or is open and stands nowhere any more.
struct MemoryNode
{
    enum class Kind
    {
        File,
        Directory,
        Link,
        Special,
    };

    using Permissions = Utilities::Flags<PosixFilePermissionFlag>;

    MemoryNode(Kind itsKind, Permissions itsPermissions, std::shared_ptr<MemoryUsage> usage);

    bool isDirectory() const { return kind == Kind::Directory; }

    bool has(PosixFilePermissionFlag permission) const { return permissions.has(permission); }

    /// Makes its modification time that of now.
    void touch();

    const Kind kind;
    Permissions permissions;
    StorageSystemTimePoint modTime;
    MemoryContent content;                                      ///< Of a file.
    std::string target;                                         ///< Of a link: its text.
    std::map<std::string, std::shared_ptr<MemoryNode>> entries; ///< Of a directory.
};

/// Where a path leads.
struct MemoryPlace
{
    std::vector<std::shared_ptr<MemoryNode>> way; ///< From the root to the directory of the name.
    std::string name;                 ///< Empty for the root, and for what only ".." or "." name.
    std::shared_ptr<MemoryNode> node; ///< What stands there; null for nothing.
    bool wantsDirectory = false;      ///< Nothing else will do: there is a slash at the end.

    MemoryNode& parent() const { return *way.back(); }
};

/// Whether a path says of itself that a directory is there.
inline bool endsInSlash(const std::string& path)
{
    return !path.empty() && path.back() == '/';
}

/// Goes along a path, and along those of the links on the way. Nothing need stand at its end.
/// Empty: there is something on the way that leads no further, and the reason has been told.
/// \param followsLast a link at its end as well, as does a path that wants a directory.
std::optional<MemoryPlace> findPlace(const std::shared_ptr<MemoryNode>& root,
                                     const std::string& path, bool followsLast);

} // namespace FileSystem
