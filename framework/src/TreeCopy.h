#pragma once

#include "CopyTask.h"
#include "TreeScan.h"

#include <string>
#include <vector>

namespace FileSystem {

/// Copies a directory with everything below it, into a directory that may exist.
class TreeCopy
{
public:
    TreeCopy(const CopyTask& task, const std::string& sourcePath, const std::string& targetPath);

    /// False: a failure, or the progress said stop. Files that were complete stay.
    bool copy(const StorageSystemFileInfo& source);

    /// Whether the target directory did not exist before.
    bool hasMadeTarget() const { return madeTarget_; }

    /// What was found at the source.
    const Tree& tree() const { return tree_; }

private:
    bool leadsIntoItself() const;
    bool makeRoot();
    bool makeDirectory(const std::string& path, bool& made) const;
    bool copyDirectories();
    bool copyEntries(const TreeDirectory& directory, const std::string& targetPath) const;
    bool setAttributes() const;

    const CopyTask& task_;
    std::string sourcePath_;
    std::string targetPath_;
    Tree tree_;
    std::vector<std::string> targets_; ///< The tree's directories at the target, in its order.
    bool madeTarget_ = false;
};

} // namespace FileSystem
