#include "tree/TreeCopier.h"

#include "failure/NewFailure.h"
#include "path/LinkResolution.h"
#include "path/PathText.h"
#include "tree/DirectoryTransfer.h"
#include "tree/FileTransfer.h"
#include "tree/InPlaceTransfer.h"
#include "tree/LinkTransfer.h"
#include "tree/OtherRemoval.h"
#include "tree/PartName.h"
#include "tree/ResumeTransfer.h"
#include "tree/TreeLimits.h"

#include <FileSystem/StorageSystem.h>

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace FileSystem {

namespace {

// More directories are read while there is less than this to be copied: reading is what takes
// memory.
constexpr std::size_t enoughHeld = 20'000;
constexpr std::size_t mostReading = 32;

// Each has a file open on either side.
constexpr std::size_t mostFiles = 64;

// A listing takes at least as many requests.
constexpr std::size_t fewEntries = 4;

bool isLocal(const StorageSystem& system)
{
    return system.getType() == StorageSystemType::Local;
}

/// Whether a copy of the source would be inside of it, or cannot be told from that.
bool leadsIntoItself(const StorageSystem& source, const std::string& sourcePath,
                     const StorageSystem& target, const std::string& targetPath)
{
    // This machine has one tree, whichever object it is reached through.
    const bool isOneSystem = &source == &target || (isLocal(source) && isLocal(target));
    if (!isOneSystem) {
        return false;
    }
    const auto from = placeOf(source, sourcePath);
    const auto to = placeOf(target, targetPath);
    if (!from || !to || PathText::isAbsolute(*from) != PathText::isAbsolute(*to)) {
        return true;
    }
    return PathText::isWithin(*from, *to);
}

} // namespace

/// A directory that is being copied. Lives as long as anything in it is still to be copied.
struct TreeCopier::Directory
{
    TreeEntry entry;
    std::size_t depth = 0;
    DirectoryPtr parent; ///< Null for a root.
    std::shared_ptr<DirectoryTransfer> transfer;
    DirectoryContents contents;
    bool isRead = false;
    bool isMade = false;
    bool isFailed = false;
    bool hasEntries = false;
    std::size_t unfinished = 0; ///< How much of what is in it is neither copied nor has failed.
    bool isNew = false;         ///< Its target was not there before.
    bool isTargetAsked = false;
    bool isTargetListed = false;
    std::unordered_map<std::string, StorageSystemAttributes> standing;
    std::set<std::string> partNames; ///< Names in the source that a part could have.
    std::vector<std::string> others; ///< What stands there and not in the source, to be removed.
    bool mayRemoveOthers = false;
    std::string rootTarget;
};

TreeCopier::TreeCopier(const StorageSystem& source, const StorageSystem& target,
                       TreeObserver& observer, const TreeCopyOptions& options)
    : source_(source)
    , target_(target)
    , options_(options)
    , work_({&source, &target}, observer, options, mostFiles)
{
    context_.reset(new CopyContext{work_.queue(0), work_.queue(1), source, target, isLocal(source),
                                   isLocal(target), options_});
    context_->written = [this] { tellProgress(); };
    context_->kept = [this](const TreeEntry& entry, const std::string& path, TreePart part) {
        work_.kept(entry, path, part);
    };
}

TreeCopier::~TreeCopier() = default;

TreeReport TreeCopier::copy(const std::vector<TreeCopyPath>& paths)
{
    for (auto path = paths.rbegin(); path != paths.rend(); ++path) {
        TreeEntry root;
        root.path = PathText::removeTrailingSlash(path->source);
        root.target = PathText::removeTrailingSlash(path->target);
        targets_.insert(root.target);
        roots_.push_back(std::move(root));
    }
    work_.found(paths.size());
    try {
        run();
    } catch (...) {
        abandon();
        throw;
    }
    work_.report().bytes = context_->bytesDone;
    return work_.report();
}

void TreeCopier::run()
{
    while (!work_.isIdle() || (!work_.isOver() && hasStep())) {
        beginSteps();
        beginReads();
        stopTransfers();
        if (!work_.isIdle()) {
            work_.pump();
        }
        tellProgress();
    }
}

void TreeCopier::tellProgress()
{
    work_.progress().bytesDone = context_->bytesDone;
    work_.tellProgress(isAllRead());
    context_->isStopped = context_->isStopped || work_.isOver();
}

/// Once the work is over: those that nothing is in flight of would not notice.
void TreeCopier::stopTransfers()
{
    if (!work_.isOver() || areStopped_) {
        return;
    }
    areStopped_ = context_->isStopped = true;
    for (const auto& transfer : std::list(transfers_)) {
        transfer->stop();
    }
}

/// After an exception of the observer: what stands under hidden names is removed.
void TreeCopier::abandon()
{
    work_.mute();
    try {
        run();
    } catch (...) {
        // The one that is passed on came first.
    }
}

bool TreeCopier::hasStep() const
{
    return !roots_.empty() || !toEnter_.empty() || !toFill_.empty() || !toLeave_.empty();
}

bool TreeCopier::isAllRead() const
{
    return roots_.empty() && toEnter_.empty() && reading_ == 0;
}

void TreeCopier::beginSteps()
{
    while (work_.mayBegin() && hasStep()) {
        beginStep();
    }
}

/// What makes room for more comes first.
void TreeCopier::beginStep()
{
    const bool mayRead = reading_ < mostReading && held_ < enoughHeld;
    if (!toLeave_.empty()) {
        leave(takeLast(toLeave_));
    } else if (!toEnter_.empty() && (mayRead || toFill_.empty())) {
        beginDirectory(takeLast(toEnter_));
    } else if (!toFill_.empty()) {
        beginNextEntry();
    } else {
        beginRoot(takeLast(roots_));
    }
}

/// The files that were begun first are read first, as far as the memory goes.
void TreeCopier::beginReads()
{
    for (const auto& reader : readers_) {
        while (context_->bytesHeld < CopyContext::mostBytesHeld && reader->wantsToRead()) {
            reader->readNext();
        }
    }
}

void TreeCopier::beginRoot(TreeEntry&& root)
{
    work_.begin();
    const auto path = root.path;
    work_.queue(0).lookUp(
        path, [this, root = std::move(root)](const Failure& failure, const auto& is) mutable {
            work_.end();
            root.attributes = is;
            if (failure) {
                work_.fail(root, failure);
            } else if (!work_.wants(root)) {
                work_.passed();
            } else {
                begin(std::move(root), nullptr);
            }
        });
}

void TreeCopier::begin(TreeEntry&& entry, const DirectoryPtr& parent)
{
    if (isDirectory(entry.attributes)) {
        enter(std::move(entry), parent);
    } else if (entry.attributes.type && entry.attributes.type->isEmpty()) {
        work_.fail(entry, newFailure("copy", entry.path, FailureCode::NotCopyable));
        finishEntry(parent);
    } else {
        beginTransfer(std::move(entry), parent);
    }
}

void TreeCopier::enter(TreeEntry&& entry, const DirectoryPtr& parent)
{
    const std::size_t depth = parent != nullptr ? parent->depth + 1 : 0;
    const bool isTooDeep = depth >= maximumTreeDepth;
    if (isTooDeep ||
        (parent == nullptr && leadsIntoItself(source_, entry.path, target_, entry.target))) {
        work_.fail(entry, newFailure("copy", entry.path,
                                     isTooDeep ? FailureCode::TooDeep : FailureCode::IntoItself));
        finishEntry(parent);
        return;
    }
    if (parent == nullptr) {
        context_->source.confine(entry.path);
        context_->target.confine(entry.target);
    }
    toEnter_.push_back(std::make_shared<Directory>());
    auto& directory = *toEnter_.back();
    directory.entry = std::move(entry);
    directory.depth = depth;
    directory.parent = parent;
    directory.rootTarget = parent != nullptr ? parent->rootTarget : directory.entry.target;
    directory.mayRemoveOthers =
        parent != nullptr ? parent->mayRemoveOthers
                          : options_.removesOthers && !goesWhereAnotherGoes(directory.rootTarget);
}

/// What another tree brings there is none of this one's, and not to be removed.
bool TreeCopier::goesWhereAnotherGoes(const std::string& target) const
{
    if (targets_.count(target) > 1) {
        return true;
    }
    return std::any_of(targets_.begin(), targets_.end(), [&](const std::string& other) {
        return other != target &&
               (PathText::isWithin(target, other) || PathText::isWithin(other, target));
    });
}

/// Made and read at the same time.
void TreeCopier::beginDirectory(const DirectoryPtr& directory)
{
    work_.begin();
    ++reading_;
    DirectoryReader::read(context_->source, directory->entry.path,
                          [this, directory](DirectoryContents& contents) {
                              directory->contents = std::move(contents);
                              directory->isRead = true;
                              takeEntries(directory);
                          });
    if (work_.isDryRun()) {
        context_->target.lookUp(directory->entry.target,
                                [this, directory](const Failure& failure, const auto&) {
                                    made(directory, {}, static_cast<bool>(failure));
                                });
        return;
    }
    directory->transfer = std::make_shared<DirectoryTransfer>(*context_, directory->entry);
    directory->transfer->make([this, directory](const Failure& failure) {
        made(directory, failure, directory->transfer->isNew());
    });
}

void TreeCopier::made(const DirectoryPtr& directory, const Failure& failure, bool isNew)
{
    if (failure) {
        directory->isFailed = true;
        work_.fail(directory->entry, failure);
    }
    directory->isMade = true;
    directory->isNew = isNew;
    takeEntries(directory);
}

void TreeCopier::takeEntries(const DirectoryPtr& directory)
{
    if (!directory->isMade || !directory->isRead) {
        return;
    }
    const bool isOld = !directory->isFailed && !directory->isNew;
    const bool isWorthIt =
        directory->contents.entries.size() > fewEntries || directory->mayRemoveOthers;
    if (isOld && !directory->isTargetAsked && isWorthIt) {
        listTarget(directory);
        return;
    }
    --reading_;
    work_.end();
    if (directory->isFailed) {
        finishEntry(directory->parent);
        return;
    }
    chooseOthers(*directory);
    chooseWanted(*directory);
    directory->unfinished = directory->contents.entries.size();
    directory->hasEntries = directory->unfinished != 0;
    held_ += directory->unfinished;
    (directory->hasEntries ? toFill_ : toLeave_).push_back(directory);
}

/// What stands where the entries go, all at once.
void TreeCopier::listTarget(const DirectoryPtr& directory)
{
    directory->isTargetAsked = true;
    context_->target.list(
        directory->entry.target,
        [directory](std::vector<StorageSystemEntry>& entries) {
            for (auto& entry : entries) {
                directory->standing.emplace(std::move(entry.name), entry.attributes);
            }
            return true;
        },
        [this, directory](const Failure& failure) {
            // Otherwise each is looked at by itself.
            directory->isTargetListed = !failure;
            if (failure && directory->mayRemoveOthers) {
                work_.lose(directory->entry, failure);
            }
            takeEntries(directory);
        });
}

/// What cannot be read of the source is no reason to remove anything.
void TreeCopier::chooseOthers(Directory& directory)
{
    const auto& contents = directory.contents;
    const bool isWhole = !contents.failure && contents.untold.empty();
    if (!directory.mayRemoveOthers || !directory.isTargetListed || !isWhole) {
        return;
    }
    std::set<std::string> names;
    for (const auto& entry : contents.entries) {
        names.insert(entry.name);
    }
    for (const auto& [name, attributes] : directory.standing) {
        const bool isPart = options_.standing == TreeStanding::Resume && isPartName(name);
        if (names.count(name) == 0 && !isPart) {
            directory.others.push_back(name);
        }
    }
    std::sort(directory.others.begin(), directory.others.end());
}

/// Before the directory gets its time and its permissions. What is in flight waits meanwhile.
void TreeCopier::removeOthers(const Directory& directory)
{
    OtherRemoval removal(work_, target_, directory.rootTarget, directory.entry);
    removal.remove(directory.others, options_);
}

/// Whether something else of this copy goes to a path beside a file's target.
bool TreeCopier::isTarget(const std::string& path, const DirectoryPtr& parent) const
{
    return targets_.count(path) != 0 ||
           (parent != nullptr && parent->partNames.count(PathText::fileName(path)) != 0);
}

/// Keeps what is to be copied.
void TreeCopier::chooseWanted(Directory& directory)
{
    auto& contents = directory.contents;
    work_.found(contents.entries.size() + contents.untold.size());
    for (const Failure& failure : contents.untold) {
        work_.fail(entryBelow(directory.entry, {PathText::fileName(failure.path()), {}}), failure);
    }
    if (contents.failure) {
        work_.lose(directory.entry, contents.failure);
    }
    const auto isUnwanted = [&](const StorageSystemEntry& entry) {
        if (options_.standing == TreeStanding::Resume && isPartName(entry.name)) {
            directory.partNames.insert(entry.name);
        }
        if (work_.isOver()) {
            return true;
        }
        if (work_.wants(entryBelow(directory.entry, StorageSystemEntry(entry)))) {
            const bool isFile = entry.attributes.type && isRegularFile(*entry.attributes.type);
            work_.progress().bytesFound += isFile ? entry.attributes.size.value_or(0) : 0;
            return false;
        }
        work_.passed();
        return true;
    };
    auto& entries = contents.entries;
    entries.erase(std::remove_if(entries.begin(), entries.end(), isUnwanted), entries.end());
    // The next one stands last.
    std::reverse(entries.begin(), entries.end());
}

void TreeCopier::beginNextEntry()
{
    const auto directory = toFill_.back();
    auto& entries = directory->contents.entries;
    auto entry = takeLast(entries);
    --held_;
    if (entries.empty()) {
        toFill_.pop_back();
    }
    begin(entryBelow(directory->entry, std::move(entry)), directory);
}

EntryTransfer::Standing TreeCopier::standingOf(const TreeEntry& entry,
                                               const DirectoryPtr& parent) const
{
    if (parent == nullptr) {
        return {};
    }
    if (parent->isNew) {
        return {true, std::nullopt};
    }
    if (!parent->isTargetListed) {
        return {};
    }
    const auto name = PathText::fileName(entry.target);
    const auto found = parent->standing.find(name);
    if (found != parent->standing.end()) {
        // A listing need not tell what its entries are.
        return found->second.type ? EntryTransfer::Standing{true, found->second}
                                  : EntryTransfer::Standing{};
    }
    // Servers leave hidden names out of their lists, and have what they do not list all the same.
    return {name.front() != '.', std::nullopt};
}

/// In a directory that was made for them no two may have one name: the volume may not tell "a" from
/// "A".
bool TreeCopier::mustBeNewIn(const DirectoryPtr& parent)
{
    return parent != nullptr && parent->isNew;
}

std::shared_ptr<FileTransfer> TreeCopier::newFileTransfer(TreeEntry&& entry,
                                                          const DirectoryPtr& parent)
{
    const bool mustBeNew = mustBeNewIn(parent);
    auto standing = standingOf(entry, parent);
    if (options_.standing == TreeStanding::Resume) {
        auto isTaken = [this, parent](const std::string& path) { return isTarget(path, parent); };
        return std::make_shared<ResumeTransfer>(*context_, std::move(entry), std::move(standing),
                                                mustBeNew, std::move(isTaken));
    }
    if (options_.isInPlace) {
        return std::make_shared<InPlaceTransfer>(*context_, std::move(entry), std::move(standing),
                                                 mustBeNew);
    }
    return std::make_shared<FileTransfer>(*context_, std::move(entry), std::move(standing),
                                          mustBeNew);
}

void TreeCopier::beginTransfer(TreeEntry&& entry, const DirectoryPtr& parent)
{
    std::shared_ptr<EntryTransfer> transfer;
    if (isSymbolicLink(entry.attributes)) {
        auto standing = standingOf(entry, parent);
        transfer = std::make_shared<LinkTransfer>(*context_, std::move(entry), std::move(standing),
                                                  mustBeNewIn(parent));
    } else {
        readers_.push_back(newFileTransfer(std::move(entry), parent));
        transfer = readers_.back();
    }
    work_.begin();
    transfers_.push_back(transfer);
    transfer->start([this, parent](EntryTransfer& over) { ended(over, parent); });
}

void TreeCopier::ended(EntryTransfer& transfer, const DirectoryPtr& parent)
{
    const auto isIt = [&transfer](const auto& one) { return one.get() == &transfer; };
    readers_.remove_if(isIt);
    const auto found = std::find_if(transfers_.begin(), transfers_.end(), isIt);
    const auto kept = *found;
    transfers_.erase(found);
    work_.end();
    finishEntry(parent);
    if (transfer.outcome() == EntryTransfer::Outcome::Failed) {
        if (!context_->isStopped || transfer.failure().code() != FailureCode::Cancelled) {
            work_.fail(transfer.entry(), transfer.failure());
        }
        return;
    }
    for (const Failure& loss : transfer.losses()) {
        work_.lose(transfer.entry(), loss);
    }
    if (transfer.outcome() == EntryTransfer::Outcome::Skipped) {
        work_.skipped(transfer.entry());
    } else {
        work_.done(transfer.entry());
    }
}

/// What came through a link that has taken the directory's place is not the tree's.
void TreeCopier::leave(const DirectoryPtr& directory)
{
    if (!directory->others.empty()) {
        removeOthers(*directory);
    }
    work_.begin();
    if (!directory->hasEntries || work_.isDryRun()) {
        finish(directory);
        return;
    }
    context_->source.lookUp(
        directory->entry.path, [this, directory](const Failure& failure, const auto& now) {
            if (failure) {
                work_.lose(directory->entry, failure);
            } else if (now.type && !isDirectory(now)) {
                work_.lose(directory->entry,
                           newFailure("copy", directory->entry.path, FailureCode::Changed));
            }
            finish(directory);
        });
}

void TreeCopier::finish(const DirectoryPtr& directory)
{
    if (work_.isDryRun()) {
        finished(directory, {});
        return;
    }
    directory->transfer->finish(
        [this, directory](const std::vector<Failure>& losses) { finished(directory, losses); });
}

void TreeCopier::finished(const DirectoryPtr& directory, const std::vector<Failure>& losses)
{
    work_.end();
    finishEntry(directory->parent);
    for (const Failure& loss : losses) {
        work_.lose(directory->entry, loss);
    }
    work_.done(directory->entry);
}

void TreeCopier::finishEntry(const DirectoryPtr& parent)
{
    if (parent != nullptr && --parent->unfinished == 0) {
        toLeave_.push_back(parent);
    }
}

} // namespace FileSystem
