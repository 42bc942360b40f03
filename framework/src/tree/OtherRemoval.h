#pragma once

#include "tree/TreeWork.h"

#include <FileSystem/TreeOperations.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace FileSystem {

/// Removes from a directory that is copied into what its source has not.
class OtherRemoval final : public TreeObserver
{
public:
    /// \param queue of the target, for this alone: what is removed is waited for.
    /// \param root that the directory is in, or is: nothing below its target is reached through a
    ///             link.
    /// \param kept paths, in small letters, of what is not to be removed whatever the source has.
    OtherRemoval(TreeWork& work, std::shared_ptr<StorageSystemQueue> queue, const std::string& root,
                 const TreeEntry& directory, const std::set<std::string>& kept);
    ~OtherRemoval() override;

    /// \return the names of those for which this is to be called again, when there is room for it.
    std::vector<std::string> remove(const std::vector<std::string>& names,
                                    const TreeOptions& options);

private:
    bool mayBeKept(const std::string& path) const;
    bool wants(const TreeEntry& entry) override;
    void done(const TreeEntry& entry) override;
    bool failed(const TreeEntry& entry, const Failure& failure) override;
    bool progress(const TreeProgress& progress) override;

    TreeEntry inTree(const TreeEntry& entry) const;

    TreeWork& work_;
    std::shared_ptr<StorageSystemQueue> queue_;
    const std::string& root_;
    const TreeEntry& directory_;
    const std::set<std::string>& kept_;
    TreeWork::Beginning beginning_ = 0;
    std::set<std::string> again_;
    std::set<std::string> told_; ///< What could not be removed, by its path.
};

} // namespace FileSystem
