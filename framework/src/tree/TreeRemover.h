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

    /// \param queue with nothing in flight, that others use before and after.
    TreeRemover(std::shared_ptr<StorageSystemQueue> queue, TreeObserver& observer,
                const TreeOptions& options);

    /// Nothing below this directory is reached through a link; of the trees otherwise.
    void confine(const std::string& directory);

    /// Each file and link is looked at, and the observer asked, once more before it is removed: a
    /// list may be old by then.
    void lookAgainAtFiles() noexcept { looksAgain_ = true; }

    TreeReport remove(const std::vector<std::string>& roots);

private:
    struct Directory;
    using DirectoryPtr = std::shared_ptr<Directory>;

    bool tellProgress();
    bool hasStep() const;
    bool isAllRead() const;
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
