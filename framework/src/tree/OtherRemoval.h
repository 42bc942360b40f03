#pragma once

#include "tree/TreeRemover.h"
#include "tree/TreeWork.h"

#include <FileSystem/TreeOperations.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace FileSystem {

/// Removes from a directory that is copied into what its source has not, beside the rest of the
/// copy.
class OtherRemoval final : public TreeObserver
{
public:
    /// \param queue of the target, confined to what the directory is in, that the copy pumps.
    /// \param kept paths, in small letters, of what is not to be removed whatever the source has.
    OtherRemoval(TreeWork& work, std::shared_ptr<StorageSystemQueue> queue,
                 const TreeEntry& directory, const std::set<std::string>& kept);
    ~OtherRemoval() override;

    /// Not while an earlier one is not done.
    /// \param beginning of the step of the copy that the whole of it is.
    void start(const std::vector<std::string>& names, const TreeOptions& options,
               TreeWork::Beginning beginning);

    /// Begins as much as there is room for. \param most is in flight at most.
    void step(std::size_t most) { remover_->step(most); }

    std::size_t inFlight() const noexcept { return remover_->inFlight(); }

    bool isDone() const { return remover_->isDone(); }

    /// The names of those for which it is to be started again, when there is room for it.
    std::vector<std::string> namesLeft() const { return {again_.begin(), again_.end()}; }

private:
    bool mayBeKept(const std::string& path) const;
    bool wants(const TreeEntry& entry) override;
    void done(const TreeEntry& entry) override;
    bool failed(const TreeEntry& entry, const Failure& failure) override;
    bool progress(const TreeProgress& progress) override;

    TreeEntry inTree(const TreeEntry& entry) const;

    TreeWork& work_;
    std::shared_ptr<StorageSystemQueue> queue_;
    const TreeEntry& directory_;
    const std::set<std::string>& kept_;
    std::unique_ptr<TreeRemover> remover_;
    TreeWork::Beginning beginning_ = 0;
    std::set<std::string> again_;
    std::set<std::string> told_; ///< What could not be removed, by its path.
};

} // namespace FileSystem
