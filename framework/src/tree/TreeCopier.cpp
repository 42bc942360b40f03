#include "tree/TreeCopier.h"

#include "failure/NewFailure.h"
#include "path/LinkResolution.h"
#include "path/PathText.h"
#include "tree/DirectoryTransfer.h"
#include "tree/FileTransfer.h"
#include "tree/HiddenName.h"
#include "tree/InPlaceTransfer.h"
#include "tree/LinkTransfer.h"
#include "tree/OtherRemoval.h"
#include "tree/ResumeTransfer.h"
#include "tree/TreeLimits.h"

#include <FileSystem/StorageSystem.h>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace FileSystem {

namespace {

// More directories are read while there is less than this to be copied: reading is what takes
// memory.
constexpr std::size_t enoughHeld = 20'000;
constexpr std::size_t mostReading = 32;

constexpr std::uint64_t largestPiece = 32U << 20U;

// Each has a file open on either side.
constexpr std::size_t mostFiles = 64;

// A listing takes at least as many requests.
constexpr std::size_t fewEntries = 4;

bool isLocal(const StorageSystem& system)
{
    return system.getType() == StorageSystemType::Local;
}

/// A pipe, a socket or a device.
bool isOther(const StorageSystemAttributes& attributes)
{
    return attributes.type && attributes.type->isEmpty();
}

/// Names that are not listed at a target: it may have them in another spelling, where it tells no
/// case or has a normal form of its own.
class OtherSpellings
{
public:
    void add(const std::string& name)
    {
        folded_.insert(withSmallLetters(name));
        isAnyBeyondAscii_ = isAnyBeyondAscii_ || isBeyondAscii(name);
    }

    bool mayHave(const std::string& name) const
    {
        return folded_.count(withSmallLetters(name)) != 0 ||
               (isAnyBeyondAscii_ && isBeyondAscii(name));
    }

private:
    static bool isBeyondAscii(const std::string& name)
    {
        return std::any_of(name.begin(), name.end(), [](char byte) {
            return (static_cast<unsigned char>(byte) & 0x80U) != 0;
        });
    }

    std::set<std::string> folded_;
    bool isAnyBeyondAscii_ = false;
};

std::uint64_t sizeOf(const StorageSystemAttributes& attributes)
{
    return attributes.type && isRegularFile(*attributes.type) ? attributes.size.value_or(0) : 0;
}

} // namespace

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

/// A directory that is being copied. Lives as long as anything in it is still to be copied.
struct TreeCopier::Directory
{
    TreeEntry entry;
    std::size_t depth = 0;
    std::size_t number = 0; ///< Those of one source come before those of the next.
    DirectoryPtr parent;    ///< Null for a root.
    std::shared_ptr<DirectoryTransfer> transfer;
    DirectoryContents contents;
    TreeWork::Beginning beginning = 0;
    int unanswered = 0; ///< Of reading it and making it.
    bool isRead = false;
    bool isMade = false;
    bool isFailed = false;
    Failure whyNotMade;
    Failure shortage;              ///< Why its reading or its making has to be tried again.
    std::size_t unfinished = 0;    ///< How much of what is in it is neither copied nor has failed.
    bool isNew = false;            ///< Its target was not there before.
    bool isShared = false;         ///< Other sources may go to its target, or below it.
    bool wasMadeByAnother = false; ///< By the copy of one of those.
    std::unordered_set<std::string> twins; ///< Names that a volume may not tell from others.
    bool isTargetAsked = false;
    bool isTargetListed = false;
    std::unordered_map<std::string, StorageSystemAttributes> standing;
    std::set<std::string> partNames; ///< Names in the source that a part could have.
    std::shared_ptr<OtherRemoval> removal;
    std::vector<std::string> others; ///< What stands there and not in the source, to be removed.
    bool isLetGo = false;            ///< It was kept open, and is to be left now.
    bool isLookedAt = false;         ///< Once more, when all in it was copied.
    bool hasFailures = false;        ///< Something in it, or below, was not copied.
};

TreeCopier::TreeCopier(const StorageSystem& source, const StorageSystem& target,
                       TreeObserver& observer, const TreeCopyOptions& options)
    : source_(source)
    , target_(target)
    , options_(options)
    , work_({&source}, observer, options, mostFiles)
{
    // One that copies by itself does so within a queue.
    const bool copiesItself = &source == &target && work_.queue().beginCopies();
    if (!copiesItself) {
        work_.addQueue(target, mostFiles);
    }
    context_.reset(new CopyContext{work_.queue(), work_.queue(copiesItself ? 0 : 1), source, target,
                                   isLocal(source), isLocal(target), options_, copiesItself});
    context_->written = [this](const TreeEntry& entry) {
        work_.turnTo(entry);
        tellProgress();
    };
    context_->kept = [this](const TreeEntry& entry, const std::string& path, TreePart part) {
        work_.kept(entry, path, part);
    };
}

TreeCopier::~TreeCopier() = default;

void TreeCopier::movePieces(std::uint64_t size) noexcept
{
    if (size != 0) {
        context_->pieceSize = std::min(size, largestPiece);
    }
}

TreeReport TreeCopier::copy(const std::vector<TreeCopyPath>& paths)
{
    const auto turns = turnsOf(paths);
    noteSources(paths);
    for (auto i = paths.size(); i-- > 0;) {
        if (!turns[i].isRepeated) {
            Root root{{}, turns[i]};
            root.entry.path = PathText::removeTrailingSlash(paths[i].source);
            root.entry.target = PathText::removeTrailingSlash(paths[i].target);
            targets_.insert(root.entry.target);
            if (turns[i].isShared) {
                claims_.expect(root.entry.target);
            }
            roots_.push_back(std::move(root));
        }
    }
    std::stable_sort(roots_.begin(), roots_.end(), [](const Root& left, const Root& right) {
        return left.turn.turn > right.turn.turn;
    });
    work_.found(roots_.size());
    try {
        run();
    } catch (...) {
        abandon();
        throw;
    }
    return work_.report();
}

void TreeCopier::run()
{
    while (!work_.isIdle() || (!work_.isOver() && (hasStep() || !keptOpen_.empty()))) {
        stepRemovals();
        leaveKeptOpen();
        beginSteps();
        beginReads();
        stopTransfers();
        if (!work_.isIdle()) {
            work_.pump();
        }
        static_cast<void>(tellProgress());
    }
}

/// Whether to go on.
bool TreeCopier::tellProgress()
{
    work_.progress().bytesDone = context_->bytesDone;
    work_.tellProgress(isAllRead());
    context_->isStopped = context_->isStopped || work_.isOver();
    return !work_.isOver();
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
    areStopped_ = false;
    do {
        try {
            stopTransfers();
            work_.pump();
        } catch (...) {
            // The one that is passed on came first.
        }
    } while (work_.hasPending());
}

/// Before the next turn, or in the end. One at a time, those of the first source first: of two
/// sources of one directory the last one has the last word.
void TreeCopier::leaveKeptOpen()
{
    if (keptOpen_.empty() || !work_.isIdle() || hasSteps()) {
        return;
    }
    const auto rankOf = [this](const DirectoryPtr& directory) {
        return std::pair(claims_.isExpectedBelow(directory->entry.target), directory->number);
    };
    const auto next = std::min_element(
        keptOpen_.begin(), keptOpen_.end(),
        [&](const auto& one, const auto& other) { return rankOf(one) < rankOf(other); });
    const auto directory = *next;
    if (!claims_.isExpectedBelow(directory->entry.target)) {
        keptOpen_.erase(next);
        claims_.letGo(directory->entry.target);
        directory->isLetGo = true;
        toLeave_.push_back(directory);
    }
}

bool TreeCopier::hasStep() const
{
    return hasSteps() || mayBeginRoot();
}

bool TreeCopier::hasSteps() const
{
    return !toEnter_.empty() || !toFill_.empty() || !toLeave_.empty() || !waiting_.empty();
}

/// Whoever shares a place with another comes when that one is there.
bool TreeCopier::mayBeginRoot() const
{
    return !roots_.empty() && (roots_.back().turn.turn == turn_ || (work_.isIdle() && !hasSteps()));
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
    } else if (!waiting_.empty()) {
        beginAgain(takeLast(waiting_));
    } else if (!toEnter_.empty() && (mayRead || toFill_.empty())) {
        beginDirectory(takeLast(toEnter_));
    } else if (!toFill_.empty()) {
        beginNextEntry();
    } else {
        beginRoot(takeLast(roots_));
    }
}

/// The files that were begun first are read first.
void TreeCopier::beginReads()
{
    limit_.note(context_->bytesDone);
    for (const auto& reader : readers_) {
        while (context_->bytesHeld < limit_.bytes() && reader->wantsToRead()) {
            reader->readNext();
        }
    }
}

void TreeCopier::beginRoot(Root&& root)
{
    turn_ = root.turn.turn;
    const auto beginning = work_.begin();
    const auto path = root.entry.path;
    work_.queue(0).lookUp(path, [this, beginning, root = std::move(root)](const Failure& failure,
                                                                          const auto& is) mutable {
        const bool waits = work_.waitsForRoom(failure, beginning);
        work_.end();
        root.entry.attributes = is;
        if (waits) {
            roots_.push_back(std::move(root));
            return;
        }
        if (root.turn.isShared) {
            claims_.expectNoMore(root.entry.target);
        }
        if (failure) {
            work_.fail(root.entry, failure);
        } else if (!work_.wants(root.entry)) {
            work_.passed();
        } else {
            work_.expect(is);
            work_.progress().bytesFound += sizeOf(is);
            beginNamed(std::move(root.entry), root.turn.isShared);
        }
    });
}

void TreeCopier::beginNamed(TreeEntry&& root, bool isShared)
{
    if (isDirectory(root.attributes)) {
        enter(std::move(root), nullptr, isShared);
    } else if (isShared && !isOther(root.attributes)) {
        beginClaimed(std::move(root), nullptr);
    } else {
        begin(std::move(root), nullptr);
    }
}

/// Where the target is no other source's.
void TreeCopier::beginClaimed(TreeEntry&& entry, const DirectoryPtr& parent)
{
    switch (claims_.take(entry.target, entry.path)) {
    case CopyClaims::Answer::Same:
        work_.passed(entry);
        finishEntry(parent);
        break;
    case CopyClaims::Answer::Taken:
        work_.fail(entry, newFailure("copy", entry.target, FailureCode::Exists,
                                     "another source of this call goes there"));
        noteFailure(parent);
        finishEntry(parent);
        break;
    case CopyClaims::Answer::Doubtful:
        if (parent == nullptr) {
            beginDoubtful(std::move(entry));
            break;
        }
        [[fallthrough]];
    case CopyClaims::Answer::Free:
        begin(std::move(entry), parent);
        break;
    }
}

/// Where names are told apart by their case, what stands there has this very name.
void TreeCopier::beginDoubtful(TreeEntry&& root)
{
    work_.begin();
    const auto name = PathText::fileName(root.target);
    const auto directory = PathText::parentId(root.target);
    const auto isThere = std::make_shared<bool>(false);
    context_->target.list(
        directory.empty() ? "." : directory,
        [this, name, isThere](std::vector<StorageSystemEntry>& entries) {
            *isThere = *isThere || std::any_of(entries.begin(), entries.end(),
                                               [&](const auto& is) { return is.name == name; });
            return !*isThere && tellProgress();
        },
        [this, isThere, root = std::move(root)](const Failure& /*failure*/) mutable {
            work_.end();
            if (work_.isOver()) {
                return;
            }
            beginTransfer(std::move(root), nullptr, !*isThere);
        });
}

void TreeCopier::begin(TreeEntry&& entry, const DirectoryPtr& parent)
{
    if (isDirectory(entry.attributes)) {
        enter(std::move(entry), parent, parent->isShared);
    } else if (isOther(entry.attributes)) {
        work_.fail(entry, newFailure("copy", entry.path, FailureCode::NotCopyable));
        noteFailure(parent);
        finishEntry(parent);
    } else {
        const bool isNewName = parent != nullptr && mustBeNew(entry, *parent);
        beginTransfer(std::move(entry), parent, isNewName);
    }
}

void TreeCopier::enter(TreeEntry&& entry, const DirectoryPtr& parent, bool isShared)
{
    const std::size_t depth = parent != nullptr ? parent->depth + 1 : 0;
    const bool isTooDeep = depth >= maximumTreeDepth;
    if (isTooDeep ||
        (parent == nullptr && leadsIntoItself(source_, entry.path, target_, entry.target))) {
        work_.fail(entry, newFailure("copy", entry.path,
                                     isTooDeep ? FailureCode::TooDeep : FailureCode::IntoItself));
        noteFailure(parent);
        finishEntry(parent);
        return;
    }
    if (parent == nullptr) {
        keepSourcesWithin(entry.target);
        context_->source.confine(entry.path);
        context_->target.confine(entry.target);
    }
    toEnter_.push_back(std::make_shared<Directory>());
    auto& directory = *toEnter_.back();
    directory.entry = std::move(entry);
    directory.depth = depth;
    directory.number = entered_++;
    directory.parent = parent;
    directory.isShared = isShared;
}

/// Made and read at the same time.
void TreeCopier::beginDirectory(const DirectoryPtr& directory)
{
    directory->beginning = work_.begin();
    ++reading_;
    directory->shortage = {};
    directory->unanswered = (directory->isRead ? 0 : 1) + (directory->isMade ? 0 : 1);
    if (directory->unanswered == 0) {
        takeEntries(directory);
        return;
    }
    if (!directory->isRead) {
        DirectoryReader::read(
            context_->source, directory->entry.path, [this] { return tellProgress(); },
            [this, directory](DirectoryContents& contents) { read(directory, contents); });
    }
    if (!directory->isMade) {
        beginMaking(directory);
    }
}

void TreeCopier::beginMaking(const DirectoryPtr& directory)
{
    if (work_.isDryRun()) {
        context_->target.lookUp(directory->entry.target,
                                [this, directory](const Failure& failure, const auto&) {
                                    made(directory, {}, static_cast<bool>(failure));
                                });
        return;
    }
    // What was made before there was no room to look at it is gone on with.
    if (directory->transfer == nullptr) {
        const bool isOurs = directory->isShared && claims_.isNew(directory->entry.target);
        directory->transfer =
            std::make_shared<DirectoryTransfer>(*context_, directory->entry, isOurs);
    }
    directory->transfer->make([this, directory](const Failure& failure) {
        made(directory, failure, directory->transfer->isNew());
    });
}

void TreeCopier::read(const DirectoryPtr& directory, DirectoryContents& contents)
{
    directory->contents = std::move(contents);
    directory->isRead = true;
    noteShortage(*directory, directory->contents.shortage());
    answered(directory);
}

void TreeCopier::noteShortage(Directory& directory, const Failure& why)
{
    if (why.code() == FailureCode::NoResources) {
        directory.shortage = why;
    }
}

/// Both are known, or one is to be asked for again.
void TreeCopier::answered(const DirectoryPtr& directory)
{
    if (--directory->unanswered == 0 && !waitsForRoom(directory)) {
        takeEntries(directory);
    }
}

/// Whether it is begun once more, with what there was no room for.
bool TreeCopier::waitsForRoom(const DirectoryPtr& directory)
{
    if (!work_.waitsForRoom(directory->shortage, directory->beginning)) {
        return false;
    }
    work_.end();
    --reading_;
    if (directory->contents.shortage()) {
        directory->contents = {};
        directory->isRead = false;
    }
    if (directory->whyNotMade.code() == FailureCode::NoResources) {
        directory->whyNotMade = {};
        directory->isMade = false;
    }
    toEnter_.push_back(directory);
    return true;
}

void TreeCopier::made(const DirectoryPtr& directory, const Failure& failure, bool isNew)
{
    const bool isInTheWay = !failure && !isNew && areRootsNew_ && directory->parent == nullptr;
    const auto why =
        isInTheWay ? newFailure("copy", directory->entry.target, FailureCode::Exists) : failure;
    directory->whyNotMade = why;
    noteShortage(*directory, why);
    directory->isMade = true;
    directory->isNew = isNew;
    if (directory->isShared) {
        directory->wasMadeByAnother = claims_.isNew(directory->entry.target);
        if (isNew) {
            claims_.noteNew(directory->entry.target);
        }
    }
    hasMadeRoot_ = hasMadeRoot_ || (isNew && directory->parent == nullptr);
    answered(directory);
}

void TreeCopier::takeEntries(const DirectoryPtr& directory)
{
    if (directory->whyNotMade && !directory->isFailed) {
        directory->isFailed = true;
        noteFailure(directory->parent);
        work_.fail(directory->entry, directory->whyNotMade);
    }
    const bool isOld = !directory->isFailed && !directory->isNew;
    if (isOld && !directory->isTargetAsked && !work_.isOver()) {
        findTwins(*directory);
        const bool isWorthIt = directory->contents.entries.size() > fewEntries ||
                               !directory->twins.empty() || mayRemoveOthers(*directory);
        if (isWorthIt) {
            listTarget(directory);
            return;
        }
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
    held_ += directory->unfinished;
    (directory->unfinished != 0 ? toFill_ : toLeave_).push_back(directory);
}

/// What stands where the entries go, all at once.
void TreeCopier::listTarget(const DirectoryPtr& directory)
{
    directory->isTargetAsked = true;
    context_->target.list(
        directory->entry.target,
        [this, directory](std::vector<StorageSystemEntry>& entries) {
            for (auto& entry : entries) {
                directory->standing.emplace(std::move(entry.name), entry.attributes);
            }
            return tellProgress();
        },
        [this, directory](const Failure& failure) {
            noteShortage(*directory, failure);
            if (waitsForRoom(directory)) {
                directory->isTargetAsked = false;
                directory->standing.clear();
                return;
            }
            // Otherwise each is looked at by itself.
            directory->isTargetListed = !failure && !work_.isOver();
            if (failure && mayRemoveOthers(*directory)) {
                work_.lose(directory->entry, failure);
            }
            takeEntries(directory);
        });
}

/// What another source brings there is no less wanted than what this one does.
bool TreeCopier::mayRemoveOthers(const Directory& directory) const
{
    return options_.removesOthers && !directory.isShared;
}

/// What cannot be read of the source is no reason to remove anything.
void TreeCopier::chooseOthers(Directory& directory)
{
    const auto& contents = directory.contents;
    const bool isWhole = !contents.failure && contents.untold.empty() && contents.gone.empty();
    if (!mayRemoveOthers(directory) || !directory.isTargetListed || !isWhole) {
        return;
    }
    std::set<std::string> names;
    OtherSpellings spellings;
    for (const auto& entry : contents.entries) {
        names.insert(entry.name);
        if (directory.standing.count(entry.name) == 0) {
            spellings.add(entry.name);
        }
    }
    for (const auto& [name, attributes] : directory.standing) {
        const bool isPart = options_.standing == TreeStanding::Resume && isPartName(name);
        if (names.count(name) == 0 && !isPart && !spellings.mayHave(name)) {
            directory.others.push_back(name);
        }
    }
    std::sort(directory.others.begin(), directory.others.end());
}

/// Where they lead, and the places of those that are links.
void TreeCopier::noteSources(const std::vector<TreeCopyPath>& paths)
{
    if (!options_.removesOthers || !context_->isOneSystem()) {
        return;
    }
    const auto note = [this](const std::optional<std::string>& place, const std::string& name) {
        if (place) {
            sources_.push_back(PathText::childId(*place, {name}));
        }
    };
    for (const auto& [source, target] : paths) {
        const auto path = PathText::removeTrailingSlash(source);
        const auto parent = PathText::parentId(path);
        note(placeOf(source_, path), {});
        note(placeOf(source_, parent.empty() ? "." : parent), PathText::fileName(path));
    }
}

/// A tree may be copied into one that it is part of, and is no less wanted there than the copy.
void TreeCopier::keepSourcesWithin(const std::string& target)
{
    const auto place = sources_.empty() ? std::nullopt : placeOf(target_, target);
    const auto outer = withSmallLetters(place.value_or(""));
    for (const std::string& source : sources_) {
        const auto inner = withSmallLetters(source);
        if (place && PathText::isWithin(outer, inner)) {
            const auto below = PathText::removeLeadingSlash(inner.substr(outer.size()));
            keptSources_.insert(PathText::childId(withSmallLetters(target), {below}));
        }
    }
}

/// Before the directory gets its time and its permissions.
void TreeCopier::beginOthers(const DirectoryPtr& directory)
{
    directory->beginning = work_.begin();
    context_->source.lookUp(
        directory->entry.path, [this, directory](const Failure& failure, const auto& now) {
            if (leavesLater(directory, failure)) {
                return;
            }
            // Another one may stand in its place, through a link, that has nothing.
            const auto isThere = [&] {
                return now.type ? isDirectory(now)
                                : source_.directoryExists(directory->entry.path, false);
            };
            if (!failure && isThere()) {
                removeOthers(directory);
            } else {
                directory->others.clear();
                work_.end();
                toLeave_.push_back(directory);
            }
        });
}

/// The whole of it is one step of the copy.
void TreeCopier::removeOthers(const DirectoryPtr& directory)
{
    if (directory->removal == nullptr) {
        directory->removal =
            std::make_shared<OtherRemoval>(work_, work_.sharedQueue(context_->copiesItself ? 0 : 1),
                                           directory->entry, keptSources_);
    }
    directory->removal->start(directory->others, options_, directory->beginning);
    removing_.push_back(directory);
}

/// All removals together have as much in flight as one might have.
void TreeCopier::stepRemovals()
{
    const std::size_t most =
        options_.inFlight != 0 ? options_.inFlight : context_->target.capacity();
    std::size_t inFlight = 0;
    for (const auto& directory : removing_) {
        inFlight += directory->removal->inFlight();
    }
    for (const auto& directory : removing_) {
        auto& removal = *directory->removal;
        inFlight -= removal.inFlight();
        removal.step(most - std::min(most, inFlight));
        inFlight += removal.inFlight();
    }
    const auto firstDone =
        std::stable_partition(removing_.begin(), removing_.end(),
                              [](const auto& directory) { return !directory->removal->isDone(); });
    for (auto done = firstDone; done != removing_.end(); ++done) {
        (*done)->others = (*done)->removal->namesLeft();
        work_.end();
        toLeave_.push_back(*done);
    }
    removing_.erase(firstDone, removing_.end());
}

/// Whether something else of this copy goes to a path beside a file's target.
bool TreeCopier::isTarget(const std::string& path, const DirectoryPtr& parent) const
{
    return targets_.count(path) != 0 ||
           (parent != nullptr && parent->partNames.count(PathText::fileName(path)) != 0);
}

/// Names that a volume without cases takes for one, of this directory's entries and of what has
/// gone there before.
void TreeCopier::findTwins(Directory& directory) const
{
    std::unordered_map<std::string, std::string> spellings;
    for (const auto& entry : directory.contents.entries) {
        const auto [first, isFirst] = spellings.emplace(withSmallLetters(entry.name), entry.name);
        if (!isFirst) {
            directory.twins.insert({first->second, entry.name});
        } else if (directory.isShared &&
                   claims_.isDoubtful(PathText::childId(directory.entry.target, {entry.name}))) {
            directory.twins.insert(entry.name);
        }
    }
}

/// Whether what stands under the entry's name is another's: in a directory that was made for
/// them no two may have one name, since the volume may not tell "a" from "A"; in another no two
/// that differ in case, but those that both stood there.
bool TreeCopier::mustBeNew(const TreeEntry& entry, const Directory& parent)
{
    const auto name = PathText::fileName(entry.target);
    const bool isTwin = parent.twins.count(name) != 0 && parent.standing.count(name) == 0;
    return parent.isNew || parent.wasMadeByAnother || isTwin;
}

/// Keeps what is to be copied.
void TreeCopier::chooseWanted(Directory& directory)
{
    auto& contents = directory.contents;
    contents.untold.insert(contents.untold.end(), contents.gone.begin(), contents.gone.end());
    work_.found(contents.entries.size() + contents.untold.size());
    if (contents.failure || !contents.untold.empty()) {
        noteFailure(directory.parent);
    }
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
            work_.expect(entry.attributes);
            work_.progress().bytesFound += sizeOf(entry.attributes);
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
    auto below = entryBelow(directory->entry, std::move(entry));
    if (directory->isShared && !isDirectory(below.attributes)) {
        beginClaimed(std::move(below), directory);
    } else {
        begin(std::move(below), directory);
    }
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
        // A listing need not tell what its entries are, nor whose, and devices pass for
        // directories.
        const auto& told = found->second;
        const bool isTold =
            isSymbolicLink(told) || (told.type && isRegularFile(*told.type) && told.owner);
        return isTold ? EntryTransfer::Standing{true, told} : EntryTransfer::Standing{};
    }
    // Servers leave hidden names out of their lists, and have what they do not list all the
    // same.
    return {name.front() != '.', std::nullopt};
}

std::shared_ptr<FileTransfer>
TreeCopier::newFileTransfer(TreeEntry&& entry, const DirectoryPtr& parent, bool mustBeNew)
{
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

void TreeCopier::beginTransfer(TreeEntry&& entry, const DirectoryPtr& parent, bool mustBeNew)
{
    std::shared_ptr<EntryTransfer> transfer;
    if (isSymbolicLink(entry.attributes)) {
        auto standing = standingOf(entry, parent);
        transfer = std::make_shared<LinkTransfer>(*context_, std::move(entry), std::move(standing),
                                                  mustBeNew);
    } else {
        readers_.push_back(newFileTransfer(std::move(entry), parent, mustBeNew));
        transfer = readers_.back();
    }
    const auto beginning = work_.begin();
    transfers_.push_back(transfer);
    work_.turnTo(transfer->entry());
    transfer->start(
        [this, parent, beginning](EntryTransfer& over) { ended(over, parent, beginning); });
}

void TreeCopier::ended(EntryTransfer& transfer, const DirectoryPtr& parent,
                       TreeWork::Beginning beginning)
{
    const auto isIt = [&transfer](const auto& one) { return one.get() == &transfer; };
    readers_.remove_if(isIt);
    const auto found = std::find_if(transfers_.begin(), transfers_.end(), isIt);
    const auto kept = *found;
    transfers_.erase(found);
    const bool hasFailed = transfer.outcome() == EntryTransfer::Outcome::Failed;
    const bool mayWait = hasFailed && !transfer.isToBeRepeated() && !transfer.isAnythingLeft();
    const bool waits = mayWait && work_.waitsForRoom(transfer.failure(), beginning);
    work_.end();
    if (transfer.isToBeRepeated()) {
        beginTransfer(TreeEntry(transfer.entry()), parent, transfer.mustBeNew());
        return;
    }
    if (waits) {
        context_->bytesDone -= transfer.bytes();
        waiting_.push_back({transfer.entry(), parent, transfer.mustBeNew()});
        return;
    }
    finishEntry(parent);
    if (hasFailed) {
        noteFailure(parent);
        if (!context_->isStopped || transfer.failure().code() != FailureCode::Cancelled) {
            work_.fail(transfer.entry(), transfer.failure());
        } else if (!transfer.failure().text().empty()) {
            auto& left = work_.report().left;
            left += (left.empty() ? "" : "; ") + transfer.failure().text();
        }
        return;
    }
    for (const Failure& loss : transfer.losses()) {
        work_.lose(transfer.entry(), loss);
    }
    if (transfer.outcome() == EntryTransfer::Outcome::Skipped) {
        work_.skipped(transfer.entry());
    } else {
        work_.report().bytes += transfer.bytes();
        work_.done(transfer.entry());
    }
}

void TreeCopier::beginAgain(const Waiting& waiting)
{
    beginTransfer(TreeEntry(waiting.entry), waiting.parent, waiting.mustBeNew);
}

/// What came through a link that has taken the directory's place is not the tree's.
void TreeCopier::leave(const DirectoryPtr& directory)
{
    // Its permissions may keep out what comes next, which would change its time.
    const auto& target = directory->entry.target;
    const bool isAwaited = claims_.isExpectedBelow(target) || claims_.isKeptOpen(target);
    if (directory->isShared && isAwaited && !directory->isLetGo) {
        keptOpen_.push_back(directory);
        claims_.keepOpen(target);
        return;
    }
    if (!directory->others.empty() && !directory->hasFailures) {
        beginOthers(directory);
        return;
    }
    directory->beginning = work_.begin();
    if (work_.isDryRun()) {
        finish(directory);
        return;
    }
    if (directory->isLookedAt) {
        lookAtTarget(directory);
        return;
    }
    context_->source.lookUp(
        directory->entry.path, [this, directory](const Failure& failure, const auto& now) {
            if (leavesLater(directory, failure)) {
                return;
            }
            directory->isLookedAt = true;
            if (failure) {
                noteFailure(directory->parent);
                work_.lose(directory->entry, failure);
            } else if (now.type && !isDirectory(now) && !directory->contents.failure) {
                noteFailure(directory->parent);
                work_.lose(directory->entry,
                           newFailure("copy", directory->entry.path, FailureCode::Changed));
            }
            lookAtTarget(directory);
        });
}

/// What went through a link that has taken its place is elsewhere, and what the directory was to be
/// given is not for what that leads to.
void TreeCopier::lookAtTarget(const DirectoryPtr& directory)
{
    const auto& target = directory->entry.target;
    context_->target.lookUp(target, [this, directory](const Failure& failure, const auto& now) {
        if (leavesLater(directory, failure)) {
            return;
        }
        const bool isChanged = !failure && now.type && !isDirectory(now);
        if (!failure && !isChanged) {
            finish(directory);
            return;
        }
        noteFailure(directory->parent);
        const auto why =
            isChanged ? newFailure("copy", directory->entry.target, FailureCode::Changed) : failure;
        finished(directory, {why});
    });
}

/// Whether there is no room for what is left to be done with it.
bool TreeCopier::leavesLater(const DirectoryPtr& directory, const Failure& why)
{
    const bool waits = work_.waitsForRoom(why, directory->beginning);
    if (waits) {
        work_.end();
        toLeave_.push_back(directory);
    }
    return waits;
}

void TreeCopier::finish(const DirectoryPtr& directory)
{
    if (work_.isDryRun()) {
        finished(directory, {});
        return;
    }
    directory->transfer->finish([this, directory](const std::vector<Failure>& losses) {
        if (!leavesLater(directory, directory->transfer->shortage())) {
            finished(directory, losses);
        }
    });
}

void TreeCopier::finished(const DirectoryPtr& directory, const std::vector<Failure>& losses)
{
    work_.end();
    finishEntry(directory->parent);
    const auto lost = std::find_if(losses.begin(), losses.end(), [](const Failure& loss) {
        return loss.code() == FailureCode::ConnectionLost;
    });
    if (lost != losses.end()) {
        work_.fail(directory->entry, *lost);
        return;
    }
    for (const Failure& loss : losses) {
        work_.lose(directory->entry, loss);
    }
    work_.done(directory->entry);
}

/// Something of a directory was not copied: nothing of what stands there is removed for it.
void TreeCopier::noteFailure(const DirectoryPtr& parent)
{
    for (auto* directory = parent.get(); directory != nullptr;
         directory = directory->parent.get()) {
        directory->hasFailures = true;
    }
}

void TreeCopier::finishEntry(const DirectoryPtr& parent)
{
    if (parent != nullptr && --parent->unfinished == 0) {
        toLeave_.push_back(parent);
    }
}

} // namespace FileSystem
