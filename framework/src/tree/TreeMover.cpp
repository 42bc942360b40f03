#include "tree/TreeMover.h"

#include "failure/CallbackScope.h"
#include "failure/NewFailure.h"
#include "path/PathText.h"
#include "queue/AwaitAnswer.h"
#include "tree/HiddenName.h"
#include "tree/Replacement.h"
#include "tree/TreeCopier.h"
#include "tree/TreeRemover.h"
#include "tree/TreeSurvey.h"

#include <FileSystem/StorageSystem.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace FileSystem {

namespace {

/// Whether an entry is as it was when it was copied.
bool isAsCopied(const StorageSystemAttributes& now, const StorageSystemAttributes& copied)
{
    return now.type == copied.type &&
           (isDirectory(now) || (now.size == copied.size && now.modTime == copied.modTime));
}

bool isLoss(const Failure& why)
{
    return why.code() == FailureCode::ConnectionLost;
}

} // namespace

/// Follows the copy, which ends at the first failure: what is not copied cannot be removed.
class TreeMover::Copying final : public TreeObserver
{
public:
    explicit Copying(TreeMover& mover)
        : mover_(mover)
    {}

    bool wants(const TreeEntry& entry) override
    {
        if (isDirectory(entry.attributes)) {
            mover_.directories_.insert(entry.below);
        }
        return true;
    }

    void done(const TreeEntry& entry) override
    {
        mover_.copied_.emplace(entry.below, entry.attributes);
        const CallbackScope callback;
        mover_.observer_.done(entry);
    }

    bool failed(const TreeEntry& entry, const Failure& failure) override
    {
        static_cast<void>(mover_.tell(entry, failure));
        return false;
    }

    bool progress(const TreeProgress& progress) override
    {
        return mover_.askWhetherToGoOn(progress);
    }

private:
    TreeMover& mover_;
};

/// Removes what was copied. What has come since, or has changed, stays, and with it the directories
/// that it is in.
class TreeMover::Removal final : public TreeObserver
{
public:
    explicit Removal(TreeMover& mover)
        : mover_(mover)
    {}

    void done(const TreeEntry& entry) override { isGone_ = isGone_ || entry.below.empty(); }

    bool wants(const TreeEntry& entry) override
    {
        const auto copied = mover_.copied_.find(entry.below);
        if (copied != mover_.copied_.end() && isAsCopied(entry.attributes, copied->second)) {
            return true;
        }
        note(entry, newFailure("remove", entry.path, FailureCode::Changed,
                               "it has come or was changed meanwhile"));
        return false;
    }

    bool failed(const TreeEntry& entry, const Failure& failure) override
    {
        note(entry, failure);
        return true;
    }

    bool progress(const TreeProgress& /*progress*/) override
    {
        return mover_.askWhetherToGoOn(mover_.progress_);
    }

    /// Whether all is gone, as far as the system tells. What stands at the path by now is no longer
    /// the original.
    bool isDone() const noexcept { return isGone_; }

    /// Nobody knows what became of what was asked for last.
    bool isLost() const
    {
        return std::any_of(kept_.begin(), kept_.end(),
                           [](const auto& kept) { return isLoss(kept.second); });
    }

    /// Tells what stays, when it is known that it is still there.
    void tell() const
    {
        for (const auto& [entry, why] : kept_) {
            static_cast<void>(mover_.tell(entry, why));
        }
    }

private:
    /// As it is known to whoever has asked for the move.
    void note(const TreeEntry& entry, const Failure& failure)
    {
        TreeEntry known = entry;
        known.path = entry.below.empty() ? mover_.root_.path
                                         : PathText::childId(mover_.root_.path, {entry.below});
        kept_.emplace_back(std::move(known), failure);
    }

    TreeMover& mover_;
    std::vector<std::pair<TreeEntry, Failure>> kept_;
    bool isGone_ = false; ///< The root, and so all that was in it.
};

/// Removes a copy. What others have put into it meanwhile stays, with the directories that it is
/// in.
class TreeMover::TakingBack final : public TreeObserver
{
public:
    explicit TakingBack(const TreeMover& mover)
        : mover_(mover)
    {}

    bool wants(const TreeEntry& entry) override
    {
        // A directory may have been made and not filled.
        const bool isOfTheCopy =
            isDirectory(entry.attributes) && mover_.directories_.count(entry.below) != 0;
        return entry.below.empty() || isOfTheCopy || mover_.copied_.count(entry.below) != 0;
    }

private:
    const TreeMover& mover_;
};

TreeMover::TreeMover(const StorageSystem& system, const std::string& path,
                     const std::string& newPath, TreeObserver& observer, const TreeOptions& options)
    : system_(system)
    , observer_(observer)
    , options_(options)
    , queue_(system)
{
    // With a slash behind it a link would be taken for the directory that it leads to.
    root_.path = PathText::removeTrailingSlash(path);
    root_.target = PathText::removeTrailingSlash(newPath);
}

TreeMover::~TreeMover() = default;

TreeMoveReport TreeMover::move()
{
    begin(queue_, [] {});
    queue_.finish();
    return end();
}

void TreeMover::begin(StorageSystemQueue& queue, std::function<void()> done)
{
    whyNot_ = whyNotNamed();
    if (whyNot_) {
        done();
        return;
    }
    queue.lookUp(root_.path,
                 [this, &queue, done = std::move(done)](const Failure& why, const auto& is) {
                     root_.attributes = is;
                     whyNot_ = why;
                     if (why) {
                         done();
                     } else if (options_.isDryRun) {
                         lookAtTarget(queue, done);
                     } else {
                         Replacement::rename(queue, root_.path, root_.target,
                                             [this, done](const Failure& whyNotRenamed) {
                                                 whyNotRenamed_ = whyNotRenamed;
                                                 done();
                                             });
                     }
                 });
}

void TreeMover::lookAtTarget(StorageSystemQueue& queue, const std::function<void()>& done)
{
    queue.lookUp(root_.target, [this, done](const Failure& why, const auto& /*is*/) {
        if (!why) {
            whyNot_ = newFailure("move", root_.target, FailureCode::Exists);
        } else if (why.code() != FailureCode::NotFound) {
            whyNot_ = why;
        }
        done();
    });
}

TreeMoveReport TreeMover::end()
{
    const Failure& why = whyNotRenamed_;
    if (whyNot_) {
        static_cast<void>(tell(whyNot_));
    } else if (!why) {
        renamed();
    } else if (isWorthCopying(why)) {
        copyAndRemove();
    } else {
        static_cast<void>(
            tell(isLoss(why) ? withText(why, "it may stand at " + root_.target) : lossOr(why)));
    }
    return report_;
}

TreeMoveReport TreeMover::moveByCopy()
{
    const auto why = whyNotNamed();
    if (why) {
        static_cast<void>(tell(why));
    } else if (look()) {
        copyAndRemove();
    }
    return report_;
}

bool TreeMover::isTree() const
{
    return isDirectory(root_.attributes);
}

Failure TreeMover::whyNotNamed() const
{
    for (const auto& path : {root_.path, root_.target}) {
        if (!PathText::isEntryName(PathText::fileName(path))) {
            return newFailure("move", path, FailureCode::BadName);
        }
    }
    return PathText::isWithin(root_.path, root_.target)
               ? newFailure("move", root_.target, FailureCode::IntoItself)
               : Failure();
}

bool TreeMover::look()
{
    Failure why;
    const auto found = lookNow(queue_, root_.path, why);
    root_.attributes = found.value_or(StorageSystemAttributes());
    return found || tell(why);
}

/// Whether a refused renaming may be one to another volume, which a copy can make up for. A tree is
/// not read for nothing.
bool TreeMover::isWorthCopying(const Failure& why)
{
    const auto hopeless = {FailureCode::Exists, FailureCode::NotFound, FailureCode::ConnectionLost,
                           FailureCode::BadName, FailureCode::IntoItself};
    if (std::any_of(hopeless.begin(), hopeless.end(),
                    [&why](FailureCode code) { return why.code() == code; })) {
        return false;
    }
    const auto parent = PathText::parentId(root_.target);
    return parent.empty() || system_.directoryExists(parent);
}

/// A system that is lost says no to every question.
Failure TreeMover::lossOr(const Failure& why)
{
    Failure now;
    const bool isLost = !lookNow(queue_, root_.path, now) && isLoss(now);
    return isLost ? now : why;
}

void TreeMover::renamed()
{
    auto& count = isTree()                           ? report_.directories
                  : isSymbolicLink(root_.attributes) ? report_.links
                                                     : report_.files;
    ++count;
    report_.outcome = TreeMoveOutcome::Renamed;
    const CallbackScope callback;
    observer_.done(root_);
}

void TreeMover::copyAndRemove()
{
    try {
        if (!canBeCopied()) {
            return;
        }
        if (!copy()) {
            takeBack();
            return;
        }
    } catch (...) {
        takeBack();
        throw;
    }
    // From here on the copy is complete.
    if (isTree()) {
        removeTree();
    } else {
        removeFile();
    }
}

/// What cannot be copied at all is found before anything is made.
bool TreeMover::canBeCopied()
{
    // A link is moved as itself, wherever it leads.
    if (isTree() && leadsIntoItself(system_, root_.path, system_, root_.target)) {
        return tell(lossOr(newFailure("move", root_.target, FailureCode::IntoItself)));
    }
    TreeSurvey survey(system_, system_, [this](std::uint64_t bytes) {
        TreeProgress progress;
        progress.bytesFound = bytes;
        return askWhetherToGoOn(progress);
    });
    if (!isTree() || survey.survey(root_.path)) {
        return true;
    }
    return !report_.isStopped && tell(survey.refused(), survey.refusal());
}

/// False: not all of it was copied.
bool TreeMover::copy()
{
    TreeCopyOptions options;
    options.inFlight = options_.inFlight;
    options.standing = TreeStanding::Fail;
    options.preservesPermissions = options.preservesTimes = true;
    Copying copying(*this);
    TreeCopier copier(system_, system_, copying, options);
    copier.beStrict(true);
    copier.makeRootsNew(true);
    const auto noteMade = [&] {
        isRootMade_ = copier.hasMadeRoot() || copied_.count(std::string()) != 0;
    };
    TreeReport copied;
    try {
        copied = copier.copy({{root_.path, root_.target}});
    } catch (...) {
        noteMade();
        throw;
    }
    noteMade();
    report_.files = copied.files;
    report_.directories = copied.directories;
    report_.links = copied.links;
    report_.bytes = copied.bytes;
    report_.left = copied.left;
    const auto root = copied_.find(std::string());
    if (root != copied_.end()) {
        // It may have become something else since it was looked at first.
        root_.attributes = root->second;
    }
    return copied.isComplete() && isRootMade_;
}

/// The copy, whole or not.
void TreeMover::takeBack()
{
    if (!isRootMade_) {
        if (isLoss(report_.failure)) {
            report_.left += (report_.left.empty() ? "" : "; ") +
                            ("a part of the copy may be left beside " + root_.target);
        }
        return;
    }
    TakingBack taking(*this);
    const auto removed = TreeRemover(system_, taking, {}).remove({root_.target});
    if (presenceOf(root_.target) != Presence::Gone) {
        report_.left += (report_.left.empty() ? "" : "; ") +
                        ("a part of the copy may be left at " + root_.target);
    }
}

/// One that may not be removed is taken back as a copy, as long as it is seen to be still there:
/// what was asked of a server that is lost may yet be done.
void TreeMover::removeFile()
{
    Removal removal(*this);
    removeCopied(removal, root_.path);
    const auto presence = removal.isDone()   ? Presence::Gone
                          : removal.isLost() ? Presence::Unknown
                                             : presenceOf(root_.path);
    if (presence == Presence::Gone) {
        copied();
        return;
    }
    if (presence == Presence::There) {
        takeBack();
    } else {
        report_.outcome = TreeMoveOutcome::NotRemoved;
    }
    removal.tell();
}

/// The original leaves its place in one step, which also tells whether it may.
void TreeMover::removeTree()
{
    const auto aside = hiddenPath(root_.path, HiddenNameUse::SetAside);
    const auto why = rename(root_.path, aside);
    if (why) {
        // Only what is seen to be whole in its place makes up for the copy.
        const bool isThere = !isLoss(why) && presenceOf(root_.path) == Presence::There;
        if (isThere) {
            takeBack();
        } else {
            report_.outcome = TreeMoveOutcome::NotRemoved;
        }
        static_cast<void>(tell(isThere ? why : withText(why, "it may stand at " + aside)));
        return;
    }
    Removal removal(*this);
    try {
        removeCopied(removal, aside);
    } catch (...) {
        static_cast<void>(rename(aside, root_.path));
        throw;
    }
    if (removal.isDone() || presenceOf(aside) == Presence::Gone) {
        copied();
        return;
    }
    report_.outcome = TreeMoveOutcome::NotRemoved;
    report_.rest = rename(aside, root_.path) ? aside : root_.path;
    removal.tell();
}

/// Whoever has said stop meanwhile has said it too late.
void TreeMover::copied()
{
    report_.outcome = TreeMoveOutcome::Copied;
    report_.isStopped = false;
}

void TreeMover::removeCopied(Removal& removal, const std::string& place)
{
    TreeOptions options;
    options.inFlight = options_.inFlight;
    TreeRemover remover(system_, removal, options);
    remover.lookAgainAtFiles();
    static_cast<void>(remover.remove({place}));
}

TreeMover::Presence TreeMover::presenceOf(const std::string& path)
{
    Failure why;
    if (lookNow(queue_, path, why)) {
        return Presence::There;
    }
    return why.code() == FailureCode::NotFound ? Presence::Gone : Presence::Unknown;
}

Failure TreeMover::rename(const std::string& from, const std::string& to)
{
    return awaitAnswer(queue_, [&](StorageSystemQueue::Completion<> done) {
        Replacement::rename(queue_, from, to, std::move(done));
    });
}

/// \return false, for whoever ends with it.
bool TreeMover::tell(const TreeEntry& entry, const Failure& why)
{
    if (report_.failed++ == 0) {
        report_.failure = why;
    }
    const CallbackScope callback;
    static_cast<void>(observer_.failed(entry, why));
    return false;
}

bool TreeMover::tell(const Failure& why)
{
    return tell(root_, why);
}

bool TreeMover::askWhetherToGoOn(const TreeProgress& progress)
{
    progress_ = progress;
    progress_.entry = nullptr;
    if (!report_.isStopped) {
        const CallbackScope callback;
        report_.isStopped = !observer_.progress(progress);
    }
    return !report_.isStopped;
}

} // namespace FileSystem
