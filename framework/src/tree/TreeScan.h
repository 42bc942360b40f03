#pragma once

#include "tree/CopyTask.h"

#include <FileSystem/StorageSystemRecords.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

/// One directory of a tree that was looked at.
struct TreeDirectory
{
    std::string path;
    std::size_t parent = 0; ///< Its place in the tree; the root's is its own.
    std::size_t depth = 0;
    StorageSystemFileInfo info;
    std::vector<StorageSystemFileInfo> entries; ///< Regular files and symbolic links.
};

/// A directory with everything below it: the root first, parents before their children.
struct Tree
{
    std::vector<TreeDirectory> directories;
    std::string firstLink; ///< The path of a symbolic link in it; empty for none.
};

/// Looks at a whole tree, never through a symbolic link, and adds the bytes of its files to the
/// task's total. Empty: something in it cannot be copied (a pipe, a socket, a device), an entry's
/// name is no single component, a directory cannot be read to its end, is gone or has become
/// something else, or the progress, which is asked after every directory, said stop.
std::optional<Tree> scanTree(const CopyTask& task, const std::string& path,
                             const StorageSystemFileInfo& info);

} // namespace FileSystem
