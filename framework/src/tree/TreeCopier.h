#pragma once

#include "tree/CopyClaims.h"
#include "tree/CopyContext.h"
#include "tree/DirectoryReader.h"
#include "tree/EntryTransfer.h"
#include "tree/FlightLimit.h"
#include "tree/TreeWork.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace FileSystem {

class FileTransfer;

/// Whether a copy of the source would be inside of it, or cannot be told from that.
bool leadsIntoItself(const StorageSystem& source, const std::string& sourcePath,
                     const StorageSystem& target, const std::string& targetPath);

/// Copies files, links and trees between two systems.
class TreeCopier
{
public:
    TreeCopier(const StorageSystem& source, const StorageSystem& target, TreeObserver& observer,
               const TreeCopyOptions& options);
    TreeCopier(const TreeCopier&) = delete;
    TreeCopier& operator=(const TreeCopier&) = delete;
    ~TreeCopier();

    /// What is to be preserved and cannot be is a failure.
    void beStrict(bool isStrict) noexcept { context_->isStrict = isStrict; }

    /// A directory that stands at the target of a root is a failure.
    void makeRootsNew(bool areNew) noexcept { areRootsNew_ = areNew; }

    /// \param size bytes that one operation moves; 0 for as many as pay.
    void movePieces(std::uint64_t size) noexcept;

    TreeReport copy(const std::vector<TreeCopyPath>& paths);

    /// A directory was made for a root that had none at its target.
    bool hasMadeRoot() const noexcept { return hasMadeRoot_; }

private:
    struct Directory;
    using DirectoryPtr = std::shared_ptr<Directory>;

    /// What was named.
    struct Root
    {
        TreeEntry entry;
        CopyTurn turn;
    };

    /// A file or a link that is to be copied once something else has been closed.
    struct Waiting
    {
        TreeEntry entry;
        DirectoryPtr parent;
        bool mustBeNew;
    };

    void run();
    void abandon();
    bool tellProgress();
    void stopTransfers();
    void leaveKeptOpen();
    bool hasStep() const;
    bool isAllRead() const;
    bool hasSteps() const;
    bool mayBeginRoot() const;
    void beginSteps();
    void beginStep();
    void beginReads();
    void beginRoot(Root&& root);
    void beginNamed(TreeEntry&& root, bool isShared);
    void begin(TreeEntry&& entry, const DirectoryPtr& parent);
    void enter(TreeEntry&& entry, const DirectoryPtr& parent, bool isShared);
    void beginClaimed(TreeEntry&& entry, const DirectoryPtr& parent);
    void beginDoubtful(TreeEntry&& root);
    void beginDirectory(const DirectoryPtr& directory);
    void beginMaking(const DirectoryPtr& directory);
    void read(const DirectoryPtr& directory, DirectoryContents& contents);
    static void noteShortage(Directory& directory, const Failure& why);
    void answered(const DirectoryPtr& directory);
    bool waitsForRoom(const DirectoryPtr& directory);
    void made(const DirectoryPtr& directory, const Failure& failure, bool isNew);
    void listTarget(const DirectoryPtr& directory);
    void takeEntries(const DirectoryPtr& directory);
    void chooseWanted(Directory& directory);
    void findTwins(Directory& directory) const;
    static bool mustBeNew(const TreeEntry& entry, const Directory& parent);
    void beginNextEntry();
    void beginTransfer(TreeEntry&& entry, const DirectoryPtr& parent, bool mustBeNew);
    void ended(EntryTransfer& transfer, const DirectoryPtr& parent, TreeWork::Beginning beginning);
    void beginAgain(const Waiting& waiting);
    void leave(const DirectoryPtr& directory);
    bool leavesLater(const DirectoryPtr& directory, const Failure& why);
    void lookAtTarget(const DirectoryPtr& directory);
    void finish(const DirectoryPtr& directory);
    void finished(const DirectoryPtr& directory, const std::vector<Failure>& losses);
    static void noteFailure(const DirectoryPtr& parent);
    void finishEntry(const DirectoryPtr& parent);
    void chooseOthers(Directory& directory);
    void beginOthers(const DirectoryPtr& directory);
    void removeOthers(const DirectoryPtr& directory);
    void stepRemovals();
    bool mayRemoveOthers(const Directory& directory) const;
    void noteSources(const std::vector<TreeCopyPath>& paths);
    void keepSourcesWithin(const std::string& target);
    bool isTarget(const std::string& path, const DirectoryPtr& parent) const;
    std::shared_ptr<FileTransfer> newFileTransfer(TreeEntry&& entry, const DirectoryPtr& parent,
                                                  bool mustBeNew);
    EntryTransfer::Standing standingOf(const TreeEntry& entry, const DirectoryPtr& parent) const;

    const StorageSystem& source_;
    const StorageSystem& target_;
    TreeCopyOptions options_;
    /// Counts the buffers of what is in flight, so it comes before the queues.
    std::unique_ptr<CopyContext> context_;
    FlightLimit limit_;
    TreeWork work_;
    bool areRootsNew_ = false;
    bool areStopped_ = false;
    bool hasMadeRoot_ = false;
    std::set<std::string> targets_; ///< Of what was named.
    std::vector<Root> roots_;       ///< Still to be looked at; the next one last.
    /// All that was named, where it leads; what of it lies within a target is not removed there.
    std::vector<std::string> sources_;
    std::set<std::string> keptSources_; ///< As paths of the target, in small letters.
    std::size_t turn_ = 0;
    std::size_t entered_ = 0; ///< Directories.
    CopyClaims claims_;
    std::vector<DirectoryPtr> toEnter_;
    std::vector<DirectoryPtr> toFill_; ///< With entries that are still to be copied.
    std::vector<DirectoryPtr> toLeave_;
    std::vector<DirectoryPtr> removing_; ///< Those that what the source has not is removed from.
    std::vector<DirectoryPtr> keptOpen_; ///< To be left when no other source is to go below them.
    std::vector<Waiting> waiting_;
    /// Those whose files are being copied, in the order in which they were begun.
    std::list<std::shared_ptr<EntryTransfer>> transfers_;
    std::list<std::shared_ptr<FileTransfer>> readers_;
    std::size_t reading_ = 0;
    std::size_t held_ = 0; ///< Entries of the directories that are to be filled.
};

} // namespace FileSystem
