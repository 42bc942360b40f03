#pragma once

#include "queue/SlotQueue.h"

#include <FileSystem/TreeOperations.h>

#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace FileSystem {

/// Moves a file, a link or a tree within a system. Until a copy of it is complete the original is
/// whole, and nothing of it is removed that was not copied or has changed since.
class TreeMover
{
public:
    TreeMover(const StorageSystem& system, const std::string& path, const std::string& newPath,
              TreeObserver& observer, const TreeOptions& options);
    TreeMover(const TreeMover&) = delete;
    TreeMover& operator=(const TreeMover&) = delete;
    ~TreeMover();

    /// Renames, or moves by copying where the system does not.
    TreeMoveReport move();

    // The same in two steps, of which only the second one tells the observer anything.

    /// Renames, on a queue that is used by others too. \param done is called when that is over.
    void begin(StorageSystemQueue& queue, std::function<void()> done);

    /// Tells what has come of it, after it has copied what the system does not rename.
    TreeMoveReport end();

    /// Asks the observer before anything was begun.
    bool mayBegin() { return askWhetherToGoOn({}); }

    /// Moves what the system does not rename, as between volumes: a copy with permissions and
    /// times, then the removal of the original.
    TreeMoveReport moveByCopy();

private:
    class Copying;
    class Removal;
    class TakingBack;

    enum class Presence
    {
        There,
        Gone,
        Unknown,
    };

    bool isTree() const;
    Failure whyNotNamed() const;
    bool look();
    Failure lossOr(const Failure& why);
    void lookAtTarget(StorageSystemQueue& queue, const std::function<void()>& done);
    bool isWorthCopying(const Failure& why);
    void renamed();
    void copyAndRemove();
    bool canBeCopied();
    bool copy();
    void takeBack();
    void removeFile();
    void removeTree();
    void copied();
    void removeCopied(Removal& removal, const std::string& place);
    Presence presenceOf(const std::string& path);
    Failure rename(const std::string& from, const std::string& to);
    bool tell(const TreeEntry& entry, const Failure& why);
    bool tell(const Failure& why);
    bool askWhetherToGoOn(const TreeProgress& progress);

    const StorageSystem& system_;
    TreeObserver& observer_;
    TreeOptions options_;
    SlotQueue queue_; ///< Of the single steps.
    TreeEntry root_;
    TreeMoveReport report_;
    Failure whyNot_;        ///< Why it cannot be moved at all.
    Failure whyNotRenamed_; ///< Where that need not be all.
    TreeProgress progress_; ///< Of the copy.
    /// What was copied, by its path below the root; nothing else is to be removed.
    std::unordered_map<std::string, StorageSystemAttributes> copied_;
    /// Those of the original, which the copy may have made; by their paths below the root.
    std::unordered_set<std::string> directories_;
    bool isRootMade_ = false; ///< Something of the copy may stand at the new path.
};

} // namespace FileSystem
