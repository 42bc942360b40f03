#include "tree/TreeRemover.h"

#include "failure/NewFailure.h"
#include "path/PathText.h"
#include "tree/TreeLimits.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace FileSystem {

namespace {

// More directories are read while there is less than this to be removed: reading is what takes
// memory.
constexpr std::size_t enoughHeld = 20'000;
constexpr std::size_t mostReading = 32;

/// Whether there is something in a directory that cannot be named, whatever the system says of the
/// directory when it is to be removed.
bool holdsTheUnnamable(const Failure& whyUnread)
{
    return whyUnread.code() == FailureCode::BadName || whyUnread.code() == FailureCode::Protocol;
}

/// Whether a directory was not removed for what is left in it.
bool isForWhatIsLeft(const Failure& failure)
{
    return failure.code() == FailureCode::NotEmpty || failure.code() == FailureCode::Other;
}

} // namespace

/// A directory that is being emptied. Lives as long as anything in it is still to be removed.
struct TreeRemover::Directory
{
    TreeEntry entry;
    std::size_t depth = 0;
    DirectoryPtr parent; ///< Null for a root.
    std::vector<StorageSystemEntry> entries;
    std::size_t unfinished = 0; ///< How much of what was in it is neither gone nor known to stay.
    bool isKept = false;        ///< Something in it stays.
    Failure whyUnread;
};

TreeRemover::TreeRemover(const StorageSystem& system, TreeObserver& observer,
                         const TreeOptions& options)
    : work_({&system}, observer, options)
{}

TreeRemover::TreeRemover(std::shared_ptr<StorageSystemQueue> queue, TreeObserver& observer,
                         const TreeOptions& options)
    : work_(std::move(queue), observer, options)
{}

TreeReport TreeRemover::remove(const std::vector<std::string>& roots)
{
    start(roots);
    while (!isDone()) {
        beginSteps(std::numeric_limits<std::size_t>::max());
        if (!work_.isIdle()) {
            work_.pump();
        }
        static_cast<void>(tellProgress());
    }
    return work_.report();
}

/// Whether to go on.
bool TreeRemover::tellProgress()
{
    work_.tellProgress(isAllRead());
    return !work_.isOver();
}

void TreeRemover::start(const std::vector<std::string>& roots)
{
    for (auto root = roots.rbegin(); root != roots.rend(); ++root) {
        // With a slash behind it a link would be taken for the directory that it leads to.
        roots_.push_back({PathText::removeTrailingSlash(*root), {}, {}});
    }
    work_.found(roots.size());
}

void TreeRemover::step(std::size_t most)
{
    static_cast<void>(tellProgress());
    beginSteps(most);
}

void TreeRemover::beginSteps(std::size_t most)
{
    while (work_.inFlight() < most && work_.mayBegin() && hasStep()) {
        beginStep();
    }
}

bool TreeRemover::hasStep() const
{
    return !roots_.empty() || !toRead_.empty() || !toEmpty_.empty() || !toLeave_.empty();
}

bool TreeRemover::isAllRead() const
{
    return roots_.empty() && toRead_.empty() && reading_ == 0;
}

/// What makes room for more comes first.
void TreeRemover::beginStep()
{
    const bool mayRead = reading_ < mostReading && held_ < enoughHeld;
    if (!toLeave_.empty()) {
        beginLeaving(takeLast(toLeave_));
    } else if (!toRead_.empty() && (mayRead || toEmpty_.empty())) {
        beginDirectory(takeLast(toRead_));
    } else if (!toEmpty_.empty()) {
        beginNextEntry();
    } else {
        beginRoot(takeLast(roots_));
    }
}

void TreeRemover::beginRoot(TreeEntry&& root)
{
    if (!PathText::isEntryName(PathText::fileName(root.path))) {
        work_.fail(root, newFailure("remove", root.path, FailureCode::BadName));
        return;
    }
    work_.begin();
    work_.queue().lookUp(root.path, [this, root](const Failure& failure, const auto& is) mutable {
        work_.end();
        root.attributes = is;
        if (failure) {
            work_.fail(root, failure);
        } else if (!work_.wants(root)) {
            work_.passed();
        } else {
            work_.expect(root.attributes);
            begin(std::move(root), nullptr);
        }
    });
}

void TreeRemover::begin(TreeEntry&& entry, const DirectoryPtr& parent)
{
    if (isDirectory(entry.attributes)) {
        enter(std::move(entry), parent);
    } else {
        beginRemoving(std::move(entry), parent);
    }
}

void TreeRemover::enter(TreeEntry&& entry, const DirectoryPtr& parent)
{
    const std::size_t depth = parent != nullptr ? parent->depth + 1 : 0;
    if (depth >= maximumTreeDepth) {
        work_.fail(entry, newFailure("list", entry.path, FailureCode::TooDeep));
        finishEntry(parent, true);
        return;
    }
    if (parent == nullptr && !isConfined_) {
        work_.queue().confine(entry.path);
    }
    toRead_.push_back(std::make_shared<Directory>());
    auto& directory = *toRead_.back();
    directory.entry = std::move(entry);
    directory.depth = depth;
    directory.parent = parent;
}

/// Where operations are done at once, whether a list was right about a directory is asked first:
/// there are lists that tell what links lead to.
void TreeRemover::beginDirectory(const DirectoryPtr& directory)
{
    if (directory->parent == nullptr || work_.queue().descriptor() != -1) {
        beginReading(directory);
        return;
    }
    work_.begin();
    ++reading_;
    work_.queue().lookUp(directory->entry.path,
                         [this, directory](const Failure& failure, const auto& now) {
                             --reading_;
                             work_.end();
                             if (failure || !now.type || isDirectory(now)) {
                                 beginReading(directory);
                             } else {
                                 directory->entry.attributes = now;
                                 work_.expect(now);
                                 beginRemoving(std::move(directory->entry), directory->parent);
                             }
                         });
}

void TreeRemover::beginReading(const DirectoryPtr& directory)
{
    const auto beginning = work_.begin();
    ++reading_;
    DirectoryReader::read(
        work_.queue(), directory->entry.path, [this] { return tellProgress(); },
        [this, directory, beginning](DirectoryContents& contents) {
            const bool waits = work_.waitsForRoom(contents.shortage(), beginning);
            --reading_;
            work_.end();
            if (waits) {
                toRead_.push_back(directory);
            } else {
                take(directory, contents);
            }
        });
}

void TreeRemover::take(const DirectoryPtr& directory, DirectoryContents& contents)
{
    work_.found(contents.entries.size() + contents.untold.size());
    for (const Failure& failure : contents.untold) {
        directory->isKept = true;
        work_.fail(entryBelow(directory->entry, {PathText::fileName(failure.path()), {}}), failure);
    }
    directory->whyUnread = std::move(contents.failure);
    if (holdsTheUnnamable(directory->whyUnread)) {
        directory->isKept = true;
    }
    chooseWanted(*directory, contents);
    directory->unfinished = directory->entries.size();
    held_ += directory->entries.size();
    if (directory->entries.empty()) {
        leave(directory);
    } else {
        toEmpty_.push_back(directory);
    }
}

/// Keeps what is to be removed.
void TreeRemover::chooseWanted(Directory& directory, DirectoryContents& contents)
{
    for (auto& entry : contents.entries) {
        if (work_.isOver()) {
            return;
        }
        if (work_.wants(entryBelow(directory.entry, StorageSystemEntry(entry)))) {
            work_.expect(entry.attributes);
            directory.entries.push_back(std::move(entry));
        } else {
            work_.passed();
            directory.isKept = true;
        }
    }
    // The next one stands last.
    std::reverse(directory.entries.begin(), directory.entries.end());
}

void TreeRemover::beginNextEntry()
{
    const auto directory = toEmpty_.back();
    auto entry = takeLast(directory->entries);
    --held_;
    if (directory->entries.empty()) {
        toEmpty_.pop_back();
    }
    begin(entryBelow(directory->entry, std::move(entry)), directory);
}

void TreeRemover::beginRemoving(TreeEntry&& entry, const DirectoryPtr& parent)
{
    if (work_.isDryRun()) {
        work_.done(entry);
        finishEntry(parent, false);
        return;
    }
    work_.begin();
    if (looksAgain_) {
        lookAgain(std::move(entry), parent);
    } else {
        removeEntry(std::move(entry), parent);
    }
}

void TreeRemover::lookAgain(TreeEntry&& entry, const DirectoryPtr& parent)
{
    const auto path = entry.path;
    work_.queue().lookUp(path, [this, entry = std::move(entry), parent](const Failure& failure,
                                                                        const auto& now) mutable {
        work_.dismiss(entry.attributes);
        entry.attributes = failure ? entry.attributes : now;
        const bool isWanted = !failure && work_.wants(entry);
        if (failure || isWanted) {
            work_.expect(entry.attributes);
        }
        if (!isWanted) {
            endEntry(entry, parent, failure, true);
        } else {
            removeEntry(std::move(entry), parent);
        }
    });
}

void TreeRemover::removeEntry(TreeEntry&& entry, const DirectoryPtr& parent)
{
    const auto path = entry.path;
    work_.queue().removeFile(path, [this, entry = std::move(entry), parent](const Failure& why) {
        endEntry(entry, parent, why, static_cast<bool>(why));
    });
}

void TreeRemover::endEntry(const TreeEntry& entry, const DirectoryPtr& parent, const Failure& why,
                           bool isKept)
{
    work_.end();
    if (why) {
        work_.fail(entry, why);
    } else if (isKept) {
        work_.passed();
    } else {
        work_.done(entry);
    }
    finishEntry(parent, isKept);
}

/// Everything that was in the directory is gone, or is known to stay.
void TreeRemover::leave(const DirectoryPtr& directory)
{
    if (!directory->isKept) {
        toLeave_.push_back(directory);
    } else if (directory->whyUnread) {
        left(directory, directory->whyUnread);
    } else {
        work_.passed();
        finishEntry(directory->parent, true);
    }
}

void TreeRemover::beginLeaving(const DirectoryPtr& directory)
{
    if (work_.isDryRun()) {
        left(directory, directory->whyUnread);
        return;
    }
    work_.begin();
    const auto answered = [this, directory](const Failure& failure) {
        work_.end();
        const auto& whyUnread = directory->whyUnread;
        left(directory, whyUnread && isForWhatIsLeft(failure) ? whyUnread : failure);
    };
    // What only passed for a directory is none to be removed as one.
    if (directory->whyUnread.code() == FailureCode::NotDirectory) {
        work_.queue().removeFile(directory->entry.path, answered);
    } else {
        work_.queue().removeDirectory(directory->entry.path, answered);
    }
}

void TreeRemover::left(const DirectoryPtr& directory, const Failure& failure)
{
    if (failure) {
        work_.fail(directory->entry, failure);
    } else {
        work_.done(directory->entry);
    }
    finishEntry(directory->parent, static_cast<bool>(failure));
}

void TreeRemover::finishEntry(const DirectoryPtr& parent, bool isKept)
{
    if (parent == nullptr) {
        return;
    }
    parent->isKept = parent->isKept || isKept;
    if (--parent->unfinished == 0) {
        leave(parent);
    }
}

} // namespace FileSystem
