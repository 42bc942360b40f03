#pragma once

#include "tree/TreeWork.h"

#include <FileSystem/TreeOperations.h>

#include <string>
#include <vector>

namespace FileSystem {

/// Removes from a directory that is copied into what its source has not.
class OtherRemoval final : public TreeObserver
{
public:
    /// \param root that the directory is in, or is: nothing below its target is reached through a
    ///             link.
    OtherRemoval(TreeWork& work, const StorageSystem& target, const std::string& root,
                 const TreeEntry& directory);
    ~OtherRemoval() override;

    void remove(const std::vector<std::string>& names, const TreeOptions& options);

private:
    bool wants(const TreeEntry& entry) override;
    void done(const TreeEntry& entry) override;
    bool failed(const TreeEntry& entry, const Failure& failure) override;
    bool progress(const TreeProgress& progress) override;

    TreeEntry inTree(const TreeEntry& entry) const;

    TreeWork& work_;
    const StorageSystem& target_;
    const std::string& root_;
    const TreeEntry& directory_;
};

} // namespace FileSystem
