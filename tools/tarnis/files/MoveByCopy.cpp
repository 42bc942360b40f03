#include "files/MoveByCopy.h"

#include "Failure.h"
#include "files/NewDirectory.h"
#include "files/Paths.h"
#include "terminal/ProgressBar.h"

#include <FileSystem/HandleFatalError.h>

#include <utility>

#include <unistd.h>

namespace TarnisTool {

using FileSystem::TreeEntry;

namespace {

using Attributes = FileSystem::StorageSystemAttributes;

/// Whether what stands there is what was copied, as far as its looks tell.
bool isUnchanged(const Attributes& copied, const Attributes& now)
{
    const bool areDirectories = copied.type && isDirectory(*copied.type);
    return copied.type == now.type &&
           (areDirectories || (copied.size == now.size && copied.modTime == now.modTime));
}

} // namespace

/// Follows the copy: the first failure ends it.
class MoveByCopy::Copy : public FileSystem::TreeObserver
{
public:
    explicit Copy(MoveByCopy& move)
        : move_(move)
    {
        bar_.setLabel(nameOf(move.source_));
    }

    void done(const TreeEntry& entry) override
    {
        move_.copied_.emplace(entry.below, entry.attributes);
    }

    bool failed(const TreeEntry& entry, const FileSystem::Failure& why) override
    {
        const bool isOfSource = why.operation() == "list" || why.operation() == "lookUp";
        const std::string below =
            entry.below.empty() ? "" : move_.place_.display(entry.path) + ": ";
        const std::string reason = below + reasonOf(why);
        why_ = isOfSource ? joinReasons("not all of it can be read", reason) : reason;
        return false;
    }

    bool progress(const FileSystem::TreeProgress& progress) override
    {
        WorkProgress all;
        all.bytes = DoneOf{progress.bytesDone, progress.bytesFound};
        all.areTotalsKnown = progress.isAllFound;
        bar_.show(all);
        return !move_.cancellation_.isRequested();
    }

    void clearBar() { bar_.clear(); }

    /// Why it failed.
    const std::string& why() const noexcept { return why_; }

private:
    MoveByCopy& move_;
    ProgressBar bar_;
    std::string why_;
};

/// Removes what was copied.
class MoveByCopy::Removal : public FileSystem::TreeObserver
{
public:
    explicit Removal(MoveByCopy& move)
        : move_(move)
    {}

    bool wants(const TreeEntry& entry) override
    {
        const auto copied = move_.copied_.find(entry.below);
        if (copied != move_.copied_.end() && isUnchanged(copied->second, entry.attributes)) {
            return true;
        }
        note(entry, "it has come or was changed meanwhile");
        return false;
    }

    bool failed(const TreeEntry& entry, const FileSystem::Failure& why) override
    {
        move_.isLost_ = move_.isLost_ || isLoss(why);
        note(entry, reasonOf(why));
        return true;
    }

    bool progress(const FileSystem::TreeProgress& /*progress*/) override
    {
        return !move_.cancellation_.isRequested();
    }

    /// Why something stays: the first reason.
    const std::string& why() const noexcept { return why_; }

private:
    void note(const TreeEntry& entry, const std::string& reason)
    {
        if (why_.empty()) {
            why_ = (entry.below.empty() ? "" : entry.below + ": ") + reason;
        }
    }

    MoveByCopy& move_;
    std::string why_;
};

MoveByCopy::MoveByCopy(RemoteEndpoint& place, const Cancellation& cancellation, std::string source,
                       FileSystem::StorageSystemFileInfo info, std::string target)
    : place_(place)
    , cancellation_(cancellation)
    , source_(std::move(source))
    , info_(std::move(info))
    , target_(std::move(target))
{}

void MoveByCopy::run()
{
    copy();
    removeSource();
}

bool MoveByCopy::isTree() const
{
    return isDirectory(info_.type);
}

/// A tree goes into a directory that was made for it, where nothing may be replaced: the volume may
/// not tell "a" from "A".
void MoveByCopy::copy()
{
    if (isTree()) {
        makeTarget();
    }
    FileSystem::TreeCopyOptions options;
    options.standing = FileSystem::TreeStanding::Fail;
    options.preservesPermissions = true;
    options.preservesTimes = true;
    Copy copy(*this);
    const auto& system = place_.system();
    const auto report = copyTree(system, system, {{source_, target_}}, copy, options);
    if (report.isComplete() && !cancellation_.isRequested()) {
        return;
    }
    copy.clearBar();
    // Also what was copied and has lost something on the way.
    const bool isThere = copied_.count("") != 0;
    if (isThere || isTree()) {
        giveUp(copy.why());
    }
    fail(copy.why());
}

/// Exclusively: what is taken back later is nobody else's.
void MoveByCopy::makeTarget()
{
    if (!makeNewDirectory(place_.system(), target_, allOfTheOwner)) {
        fail(joinReasons("its new place cannot be made", FileSystem::Failure::last().cause()));
    }
}

void MoveByCopy::removeSource()
{
    if (isTree()) {
        removeTreeAside();
        return;
    }
    const bool isRemoved = removeCopied(source_);
    // What was asked of a server that is lost may yet be done.
    if (!isRemoved && (isLost_ || !place_.isAlive())) {
        failToRemove("", "");
    }
    if (!isRemoved) {
        giveUp(joinReasons("it cannot be removed from its place", why_));
    }
}

/// The original leaves its place in one step, which also tells whether it may.
void MoveByCopy::removeTreeAside()
{
    const auto& system = place_.system();
    const std::string aside = system.pathChildId(system.pathParentId(source_),
                                                 {".tarnis-moved-" + std::to_string(::getpid())});
    const bool isAside = attempt(
        [&] { return !system.fileInfo(aside) && system.directoryRenameAs(source_, aside); });
    if (!isAside && !place_.isAlive()) {
        failToRemove("all of ", place_.display(source_) + " or " + place_.display(aside));
    }
    if (!isAside) {
        giveUp(joinReasons("it cannot be removed from its place", why_));
    }
    if (!removeCopied(aside)) {
        const auto why = why_;
        const bool isBack = attempt([&] { return system.directoryRenameAs(aside, source_); });
        why_ = why;
        failToRemove("all of ", place_.display(isBack ? source_ : aside));
    }
}

/// Whether everything at the root is gone. A removal that was reported as failed may have been
/// done.
bool MoveByCopy::removeCopied(const std::string& root)
{
    Removal removal(*this);
    const auto& system = place_.system();
    const auto report = removeTree(system, {root}, removal);
    why_ = removal.why();
    return (report.isComplete() && why_.empty()) ||
           attempt([&] { return !system.fileInfo(root) && place_.isAlive(); });
}

/// Whether a step was done; one that finds no connection any more was not.
bool MoveByCopy::attempt(const std::function<bool()>& step)
{
    const auto before = why_;
    bool isDone = false;
    try {
        isDone = step();
    } catch (const FileSystem::handle_fatal_error&) {
    }
    why_ = before.empty() ? reasonOf(FileSystem::Failure::last()) : before;
    return isDone;
}

/// \param rest where what was not removed is now; empty where that is not known.
void MoveByCopy::failToRemove(const std::string& what, const std::string& rest)
{
    const bool isLost = isLost_ || !place_.isAlive();
    const FailureKind kind = cancellation_.isRequested() ? FailureKind::Cancelled
                             : isLost                    ? FailureKind::ConnectionLost
                                                         : FailureKind::FileProblem;
    const std::string copy = "the copy " + place_.display(target_) + " is complete";
    throw Failure(kind, "copied but did not remove", what + place_.display(source_),
                  joinReasons(copy + (rest.empty() ? "" : ", the rest is in " + rest), why_));
}

/// Takes the copy back, whole or not.
void MoveByCopy::giveUp(const std::string& hint)
{
    const bool isClean = takeBack();
    fail(hint, isClean);
}

bool MoveByCopy::takeBack() const
{
    FileSystem::TreeObserver nobody;
    return removeTree(place_.system(), {target_}, nobody).isComplete();
}

void MoveByCopy::fail(const std::string& hint, bool isClean)
{
    const std::string left = "a part of the copy may be left at " + place_.display(target_);
    if (!cancellation_.isRequested()) {
        place_.refuse("cannot move " + place_.display(source_) + " to", target_,
                      joinReasons(isClean ? "" : left, hint));
    }
    throw Failure(FailureKind::Cancelled, "interrupted the move of", place_.display(source_),
                  !place_.isAlive() ? "the connection was given up; " + left
                  : isClean         ? "nothing was moved"
                                    : left);
}

} // namespace TarnisTool
