#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/Failure.h>
#include <FileSystem/StorageSystemQueue.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace FileSystem {

class StorageSystem;

// Work on trees of directories, with as many operations in flight as pays. What fails belongs to
// its entry and keeps nothing else from being done, unless the observer says stop. Where a system
// has no descriptors, handles or memory left for an entry that is to be copied, or for a directory
// that is to be read, that waits until others are done, and fewer are in flight for a while.

/// An entry of a tree.
struct TreeEntry
{
    std::string path;  ///< In its storage system.
    std::string below; ///< From the root that was asked for: "a/b"; empty for the root itself.
    std::string target = {}; ///< Where a copy of it goes, in the storage system that it goes to.
    /// What is known of it without asking for it alone. Of the root: what was found there.
    StorageSystemAttributes attributes = {};
};

/// How far a tree operation is. What is to be done is known as far as directories were read.
struct TreeProgress
{
    std::uint64_t entriesDone = 0; ///< Done, skipped, unwanted and failed ones.
    std::uint64_t entriesFound = 0;
    std::uint64_t filesDone = 0;  ///< Done, skipped and failed ones, of those that are found.
    std::uint64_t filesFound = 0; ///< Wanted ones that are neither directories nor links.
    std::uint64_t bytesDone = 0;  ///< Of a copy: written, also of files that have failed since.
    std::uint64_t bytesFound = 0;
    bool isAllFound = false; ///< Every directory was read, so that nothing more will be found.
    /// What was worked on last: something of it was written, or it was begun, done, skipped or has
    /// failed. Valid during the call of TreeObserver::progress(); null before the first.
    const TreeEntry* entry = nullptr;
};

/// What a copy that resumes has at a path beside a file's target.
enum class TreePart : std::uint32_t
{
    Copied,   ///< What was copied. The next copy goes on from it.
    Taking,   ///< What stands at the target, which is the beginning of the file, is about to be
              ///< renamed to this path and added to; it goes back when the copy fails.
    Standing, ///< What stood at the target, perhaps with what was added: it could not go back.
    Emptied,  ///< What was copied; the system has dropped what stood at the target.
    Returned, ///< The target itself: it is back there, perhaps with what was added.
};

/// Follows a tree operation and decides in it. All functions are called on the thread that called
/// the operation, one after the other; an exception that one throws ends the operation, and is
/// passed on. What they do on storage systems are operations of their own.
class FILESYSTEM_EXPORT TreeObserver
{
public:
    TreeObserver() = default;
    TreeObserver(const TreeObserver&) = delete;
    TreeObserver& operator=(const TreeObserver&) = delete;
    virtual ~TreeObserver();

    /// Whether the operation is for this entry. A directory that is left out takes all below it
    /// along, and is not read.
    virtual bool wants(const TreeEntry& entry);

    /// Which of two subdirectories of one directory walkTree() is to walk first, where that is not
    /// to be the one whose name has the smaller bytes: a strict weak ordering.
    virtual bool comesFirst(const TreeEntry& left, const TreeEntry& right);

    /// The operation has done what it does for an entry: it is removed or copied, or, of a
    /// directory that is walked, wants() was called for all that is in it.
    virtual void done(const TreeEntry& entry);

    /// A copy leaves an entry out, for what stands where it would go.
    virtual void skipped(const TreeEntry& entry);

    /// A copy that resumes has, or leaves after a failure, something of a file at a path of the
    /// target's system. Called before failed(), and where the copy is stopped or its connection
    /// lost, for each file that was in flight.
    virtual void kept(const TreeEntry& entry, const std::string& path, TreePart part);

    /// Whether a copy with TreeCopyOptions::removesOthers is to remove what the source has not: an
    /// entry of the target, at `path` there and `below` the root's target. Asked of a directory
    /// before what is in it, and then of each of those; one that is not to go keeps all below it,
    /// and a directory with something that stays in it stays. What cannot be removed is told to
    /// failed() as such an entry, without a `target`.
    virtual bool removes(const TreeEntry& entry);

    /// A copy has removed what the source has not, or would have in a dry run: an entry as
    /// removes() is asked of.
    virtual void removed(const TreeEntry& entry);

    /// The operation could not be done for an entry. Called once for each cause: a directory that
    /// stays because of what is left in it has not failed, nor has what is in one that could not be
    /// made. With NotKept and NotRemoved it was done, but for what the failure's text says.
    /// \return whether to go on with the others.
    virtual bool failed(const TreeEntry& entry, const Failure& failure);

    /// Called after each step, and at least ten times a second while nothing happens, also while a
    /// server is waited for to open a channel. Not while a system does one operation that is done
    /// here and now (StorageSystemQueue::descriptor()), for as long as that takes: so it is on this
    /// machine, and where a server opens no channel.
    /// \return whether to go on; what is in flight is waited for, and nothing else begun.
    virtual bool progress(const TreeProgress& progress);
};

/// What became of a tree operation.
struct TreeReport
{
    std::uint64_t files = 0;       ///< Done; all that is neither a directory nor a link.
    std::uint64_t directories = 0; ///< Done.
    std::uint64_t links = 0;       ///< Done.
    std::uint64_t skipped = 0;     ///< How often TreeObserver::skipped() was called.
    std::uint64_t removed = 0;     ///< By a copy: how often TreeObserver::removed() was called.
    std::uint64_t bytes = 0;       ///< Of the files that were copied, as many as were read, or in a
                                   ///< dry run their sizes. Those of others do not count.
    std::uint64_t failed = 0;      ///< How often TreeObserver::failed() was called, or would be.
    bool isStopped = false;        ///< The observer said stop, after a failure or at its progress.
    Failure failure;               ///< The first one.
    /// What could not be removed of files that were given up since the copy was stopped, as a text;
    /// empty for nothing.
    std::string left;

    /// Whether everything was done.
    bool isComplete() const noexcept { return failed == 0 && !isStopped; }
};

/// How much at once.
struct TreeOptions
{
    /// Operations in flight; 0 for as many as pay on the system.
    std::size_t inFlight = 0;
    /// Nothing is changed: the observer and the report tell what would be done.
    bool isDryRun = false;
};

/// Walks trees: calls wants() for each root and for all that is in a directory that is wanted, in
/// ascending order of the bytes of their names, then done() for that directory; then for its
/// subdirectories in the order of comesFirst(), each with all that is below it before the next.
/// Without following a symbolic link; a root that is one is told as one.
///
/// Failures: a directory that cannot be read, or not to its end, is told after the entries that
/// were read. An entry with a name that would lead elsewhere is told with its directory and left
/// out (Protocol). A directory that something else has taken the place of is not walked (Changed).
/// A lost connection ends the walk, and is told once.
///
/// Blocks until all was told. Any thread; takes no lock while it waits.
FILESYSTEM_EXPORT TreeReport walkTree(const StorageSystem& system,
                                      const std::vector<std::string>& roots, TreeObserver& observer,
                                      const TreeOptions& options = {});

/// Removes trees: what stands at each root, and all below it where that is a directory. A symbolic
/// link is removed itself, one that takes a directory's place meanwhile included. What is not
/// wanted stays, and so do the directories that it is in.
///
/// Failures: what cannot be removed, with the reason. For a directory whose entries cannot be read
/// that reason is told, unless it can be removed all the same since it is empty. One with an entry
/// whose name would lead elsewhere stays, and is told (Protocol). A root at which nothing stands
/// fails with NotFound, one without a name of its own ("/", "..") with BadName. A lost connection
/// ends the removal, and is told once.
///
/// Blocks until all was removed or has failed. Any thread; takes no lock while it waits.
FILESYSTEM_EXPORT TreeReport removeTree(const StorageSystem& system,
                                        const std::vector<std::string>& roots,
                                        TreeObserver& observer, const TreeOptions& options = {});

/// What a copy does with a file or a link that stands where it goes. A directory stays and is
/// copied into; a pipe, a socket or a device is never replaced.
enum class TreeStanding : std::uint32_t
{
    Replace,  ///< In one step where the system can.
    Keep,     ///< The entry is left out.
    KeepSame, ///< It is left out where the file there has its size and, to the second, its time.
    Resume,   ///< What an earlier copy has left, there or beside it, is gone on from.
    Fail,     ///< It fails with Exists.
};

/// How a copy is made.
struct TreeCopyOptions : TreeOptions
{
    TreeStanding standing = TreeStanding::Replace;
    /// As StorageSystemCopyOptionFlag::PreservePermissions.
    bool preservesPermissions = false;
    /// As StorageSystemCopyOptionFlag::PreserveModTime.
    bool preservesTimes = false;
    /// As StorageSystemCopyOptionFlag::InPlace.
    bool isInPlace = false;
    /// What stands in a directory that is copied into and not in its source is removed once all is
    /// copied. Not where anything of the source could not be read or copied, there or below, and
    /// not once the copy was stopped. What is there and not wanted from the source stays, and so
    /// does what may be an entry of the source in another spelling, for a system that does not tell
    /// "a" from "A": the next copy removes it where it was not. A source of this copy on the same
    /// storage system stays in any case.
    bool removesOthers = false;
};

/// What is to be copied, and where to.
struct TreeCopyPath
{
    std::string source;
    std::string target;
};

/// Copies files, links and trees: what stands at each source, and all below it where that is a
/// directory, to its target, whose directory must exist. Links are copied as links, and nothing is
/// reached through one on either side. Files are read and written together, in any order; a
/// directory is done when all that is in it is.
///
/// Several may go to one place, as far as the texts of the targets tell: directories are merged,
/// and preserve the permissions and the time of the last one; of files the first is copied and any
/// other fails with Exists, unless it is the same source. So it is with names that the target does
/// not tell apart, such as "a" and "A" on many volumes. Those that share a place are copied in the
/// order of the paths.
///
/// A file or a link appears under its name complete or not at all: it is gathered under a hidden
/// name beside it, which is removed again where it fails or the copy is stopped, as long as the
/// system can be reached. Without "preserve" a new file or directory gets the source's permissions
/// less the umask, and a file that is replaced keeps its own; what the bytes go to is never open to
/// more people than the source is and the file that it becomes.
///
/// With TreeStanding::Resume a file gathers at ".NAME.tarnis-part" beside its target, which stays
/// there when the copy is stopped or fails; what it holds, or the target where that is the
/// beginning of the source, is compared with the source byte for byte before anything is put behind
/// it. Where it differs, is longer, or the system drops it when it is opened, the file is copied
/// anew. A target that is the whole source is left out. On this machine a part that is somebody
/// else's or has a second name is none; on another system one that is open to more people than the
/// source is closed first (Denied where that is refused). Where the source has a file of that name
/// the part has a number behind it. Such a copy is written in order; one that replaces a file keeps
/// its permissions, and not its owner.
///
/// Failures: each entry's own. A directory that cannot be made takes all below it along, and is
/// told once; one that is found to be no directory any more once it was copied, on either side,
/// fails with Changed, and nothing is set of what has taken its place at the target.
/// A pipe, a socket or a device fails with NotCopyable. What was to be preserved and is not fails
/// with NotKept, and the file stays. A lost connection ends the copy, and is told once.
///
/// Blocks until all was copied or has failed. Any thread; takes no lock while it waits.
FILESYSTEM_EXPORT TreeReport copyTree(const StorageSystem& source, const StorageSystem& target,
                                      const std::vector<TreeCopyPath>& paths,
                                      TreeObserver& observer, const TreeCopyOptions& options = {});

/// Where everything is after a move.
enum class TreeMoveOutcome : std::uint32_t
{
    Failed,     ///< Where it was, or at its new path where the connection was lost while it was
                ///< renamed; nothing of a copy is left but what TreeReport::left says.
    Renamed,    ///< At its new path.
    Copied,     ///< At its new path, as a copy; the original is removed.
    NotRemoved, ///< The copy is complete, and not all of the original could be removed.
};

/// What became of a move. Of one by copying, the counts are those of the copy.
struct TreeMoveReport : TreeReport
{
    TreeMoveOutcome outcome = TreeMoveOutcome::Failed;
    /// With NotRemoved: where the original is, or what is left of it; empty where that is not
    /// known.
    std::string rest;
};

/// Moves a file, a symbolic link itself or a tree to a path where nothing stands, within one
/// system: renames it, or where the system does not, as between volumes, copies it with permissions
/// and times and then removes the original. What has changed or come since it was copied is not
/// removed, nor are the directories that it is in.
///
/// Nothing is lost, whatever fails: until all is copied the original is whole, and a copy that is
/// given up is removed again. So is one whose original may not leave its place, which a tree does
/// in one step: while it is removed it stands beside its place, as ".NAME.XXXXXXXX.tarnis-old", and
/// what is left of it goes back. A system that is lost while it removes may yet do what it was
/// asked for last; the copy stays then, as it does where the original is not seen in its place any
/// more. What others have put into a copy that is given up stays. Where an exception of the
/// observer ends the removal, what is left of a tree goes back to its place as far as the system
/// takes it.
///
/// \param observer is told of each entry that was copied, or of the root that was renamed, by
///                 done(), and of what keeps it from moving by failed(): the copy ends at its first
///                 failure, the removal goes on. progress() may stop either. Not asked what it
///                 wants. The paths of entries are those of the original's place.
///
/// Failures: where something stands at the new path already (Exists), nothing at the old one
/// (NotFound), the new path is below it (IntoItself), one of them has no name of its own (BadName),
/// something in the tree cannot be read or copied; what was not removed, with Changed for what has
/// come or was changed since. A lost connection ends the move, and is told once.
///
/// Blocks until it is done. Any thread; takes no lock while it waits.
FILESYSTEM_EXPORT TreeMoveReport moveTree(const StorageSystem& system, const std::string& path,
                                          const std::string& newPath, TreeObserver& observer,
                                          const TreeOptions& options = {});

/// What is to be moved, and where to.
struct TreeMovePath
{
    std::string path;
    std::string newPath;
    TreeObserver* observer = nullptr; ///< Is told of this one; null: nobody is.
};

/// Moves many, each as moveTree() does. What is named comes out as if it had been moved in this
/// order, with renamings in flight where they go into one directory under names that no volume
/// takes for one; what is copied is copied one after the other.
///
/// The progress() of each is also asked before it is begun. When one says stop, or the connection
/// is lost, nothing more is begun, and what is in flight is waited for, as it is where an observer
/// throws an exception.
///
/// \return a report for each; of what was not begun isStopped.
///
/// Blocks until it is done. Any thread; takes no lock while it waits.
FILESYSTEM_EXPORT std::vector<TreeMoveReport> moveTrees(const StorageSystem& system,
                                                        const std::vector<TreeMovePath>& paths,
                                                        const TreeOptions& options = {});

} // namespace FileSystem
