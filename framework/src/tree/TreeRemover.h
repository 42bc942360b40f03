#pragma once

#include "tree/DirectoryReader.h"
#include "tree/TreeWork.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace FileSystem {

/// Removes trees: what is in a directory in any order, and the directory after it.
class TreeRemover
{
public:
    TreeRemover(const StorageSystem& system, TreeObserver& observer, const TreeOptions& options);

    /// \param queue that others use too.
    TreeRemover(std::shared_ptr<StorageSystemQueue> queue, TreeObserver& observer,
                const TreeOptions& options);

    /// What is named is in a directory that the queue was confined to; otherwise it is confined to
    /// each tree.
    void beConfined() noexcept { isConfined_ = true; }

    /// Each file and link is looked at, and the observer asked, once more before it is removed: a
    /// list may be old by then.
    void lookAgainAtFiles() noexcept { looksAgain_ = true; }

    TreeReport remove(const std::vector<std::string>& roots);

    // The same for whoever pumps the queue meanwhile, by steps that do not wait.

    void start(const std::vector<std::string>& roots);

    /// Asks the observer whether to go on, and begins as much as there is room for.
    /// \param most is in flight at most.
    void step(std::size_t most);

    std::size_t inFlight() const noexcept { return work_.inFlight(); }

    bool isDone() const { return work_.isIdle() && (work_.isOver() || !hasStep()); }

private:
    struct Directory;
    using DirectoryPtr = std::shared_ptr<Directory>;

    bool tellProgress();
    bool hasStep() const;
    bool isAllRead() const;
    void beginSteps(std::size_t most);
    void beginStep();
    void beginRoot(TreeEntry&& root);
    void begin(TreeEntry&& entry, const DirectoryPtr& parent);
    void enter(TreeEntry&& entry, const DirectoryPtr& parent);
    void beginDirectory(const DirectoryPtr& directory);
    void beginReading(const DirectoryPtr& directory);
    void take(const DirectoryPtr& directory, DirectoryContents& contents);
    void chooseWanted(Directory& directory, DirectoryContents& contents);
    void beginNextEntry();
    void beginRemoving(TreeEntry&& entry, const DirectoryPtr& parent);
    void lookAgain(TreeEntry&& entry, const DirectoryPtr& parent);
    void removeEntry(TreeEntry&& entry, const DirectoryPtr& parent);
    void endEntry(const TreeEntry& entry, const DirectoryPtr& parent, const Failure& why,
                  bool isKept);
    void beginLeaving(const DirectoryPtr& directory);
    void leave(const DirectoryPtr& directory);
    void left(const DirectoryPtr& directory, const Failure& failure);
    void finishEntry(const DirectoryPtr& parent, bool isKept);

    TreeWork work_;
    bool isConfined_ = false;
    bool looksAgain_ = false;
    std::vector<TreeEntry> roots_; ///< Still to be looked at; the next one last.
    std::vector<DirectoryPtr> toRead_;
    std::vector<DirectoryPtr> toEmpty_; ///< With entries that are still to be removed.
    std::vector<DirectoryPtr> toLeave_;
    std::size_t reading_ = 0;
    std::size_t held_ = 0; ///< Entries of the directories that are to be emptied.
};

} // namespace FileSystem
