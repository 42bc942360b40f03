#pragma once

#include "tree/CopyTask.h"
#include "tree/TargetDirectory.h"
#include "tree/TreeScan.h"

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
    bool hasMadeTarget() const { return !targets_.empty() && targets_.front().isNew(); }

    /// What was found at the source.
    const Tree& tree() const { return tree_; }

private:
    bool leadsIntoItself() const;
    bool canHaveLinks() const;
    bool makeRoot();
    bool copyDirectories();
    bool copyEntries(const TreeDirectory& directory, const TargetDirectory& target) const;
    bool finishDirectories() const;

    const CopyTask& task_;
    std::string sourcePath_;
    std::string targetPath_;
    Tree tree_;
    std::vector<TargetDirectory> targets_; ///< For the tree's directories, in its order.
};

} // namespace FileSystem
