#include "files/MoveByCopy.h"

#include "Failure.h"
#include "files/EntryNames.h"
#include "files/NewDirectory.h"
#include "terminal/ProgressBar.h"

#include <FileSystem/HandleFatalError.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include <unistd.h>

namespace TarnisTool {

namespace {

using Option = FileSystem::StorageSystemCopyOptionFlag;

constexpr auto keepAll = Option::PreservePermissions | Option::PreserveModTime | Option::Recursive |
                         Option::FailIfExists;

} // namespace

MoveByCopy::MoveByCopy(RemotePlace& place, const Cancellation& cancellation, std::string source,
                       FileSystem::StorageSystemFileInfo info, std::string target)
    : place_(place)
    , cancellation_(cancellation)
    , source_(std::move(source))
    , info_(std::move(info))
    , target_(std::move(target))
{}

void MoveByCopy::run()
{
    const std::uint64_t totalBytes = findEntries();
    copy(totalBytes);
    removeSource();
}

bool MoveByCopy::isTree() const
{
    return isDirectory(info_.type);
}

/// How many bytes there are to copy.
std::uint64_t MoveByCopy::findEntries()
{
    entries_ = {{"", info_}};
    if (isTree()) {
        TreeWalk walk(place_, cancellation_);
        auto below = walk.entriesBelow(source_);
        if (walk.isIncomplete()) {
            fail("not all of it can be read");
        }
        std::move(below.begin(), below.end(), std::back_inserter(entries_));
    }
    std::uint64_t bytes = 0;
    for (const TreeEntry& entry : entries_) {
        bytes += isRegularFile(entry.info.type) ? entry.info.size : 0;
    }
    return bytes;
}

void MoveByCopy::copy(std::uint64_t totalBytes)
{
    if (isTree()) {
        makeTarget();
    }
    ProgressBar bar(totalBytes);
    bar.setLabel(nameOf(source_));
    const bool isCopied = isTree() ? copyTree(bar) : copyEntry(source_, target_, bar);
    if (!isCopied || cancellation_.isRequested()) {
        const std::string said = reasonOf(FileSystem::Failure::last());
        bar.clear();
        if (isCopied || isTree()) {
            giveUp(said);
        }
        fail(said);
    }
}

/// Into the directory that was made for it, where no two entries may have one name: the volume may
/// not tell "a" from "A".
bool MoveByCopy::copyTree(ProgressBar& bar)
{
    const bool areCopied =
        std::all_of(std::next(entries_.begin()), entries_.end(), [&](const TreeEntry& entry) {
            const bool isOfTop = entry.path.find('/') == std::string::npos;
            return !isOfTop ||
                   copyEntry(joinPath(source_, entry.path), joinPath(target_, entry.path), bar);
        });
    const auto& system = place_.system();
    return areCopied && system.fileSetModTime(target_, info_.modTime) &&
           system.directorySetPermissions(target_,
                                          place_.withStickyBit(source_, info_.permissions));
}

/// With all below it. Fails where anything stands at the target.
bool MoveByCopy::copyEntry(const std::string& source, const std::string& target, ProgressBar& bar)
{
    const std::uint64_t doneBefore = doneBytes_;
    const auto progress = [&](std::uint64_t done, std::uint64_t /*total*/) {
        doneBytes_ = doneBefore + done;
        bar.show(doneBytes_);
        return !cancellation_.isRequested();
    };
    const auto& system = place_.system();
    return system.fileCopyAs(source, system, target, progress, keepAll);
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
        removeTree();
        return;
    }
    const bool isRemoved = attempt([this] { return removeEntry(source_, entries_.front()); });
    if (!isRemoved && !place_.isAlive()) {
        failToRemove("", "");
    }
    if (!isRemoved) {
        giveUp(joinReasons("it cannot be removed from its place", reasonOf(why_)));
    }
}

/// The original leaves its place in one step, which also tells whether it may.
void MoveByCopy::removeTree()
{
    const auto& system = place_.system();
    const std::string aside = system.pathChildId(system.pathParentId(source_),
                                                 {".tarnis-moved-" + std::to_string(::getpid())});
    const bool isAside = attempt([&] {
        const bool isRenamed = !system.fileInfo(aside) && system.directoryRenameAs(source_, aside);
        why_ = FileSystem::Failure::last();
        return isRenamed;
    });
    if (!isAside && !place_.isAlive()) {
        failToRemove("all of ", place_.display(source_) + " or " + place_.display(aside));
    }
    if (!isAside) {
        giveUp(joinReasons("it cannot be removed from its place", why_.cause()));
    }
    const bool isRemoved = attempt([&] {
        return std::all_of(entries_.rbegin(), entries_.rend(), [&](const TreeEntry& entry) {
            return !cancellation_.isRequested() && removeEntry(aside, entry);
        });
    });
    if (!isRemoved) {
        const auto why = why_;
        const bool isBack = attempt([&] { return system.directoryRenameAs(aside, source_); });
        why_ = why;
        failToRemove("all of ", place_.display(isBack ? source_ : aside));
    }
}

/// Whether a step was done; one that finds no connection any more was not.
bool MoveByCopy::attempt(const std::function<bool()>& step)
{
    try {
        return step();
    } catch (const FileSystem::handle_fatal_error&) {
        why_ = FileSystem::Failure::last();
        return false;
    }
}

/// \param rest where what was not removed is now; empty where that is not known.
void MoveByCopy::failToRemove(const std::string& what, const std::string& rest)
{
    const FailureKind kind = cancellation_.isRequested() ? FailureKind::Cancelled
                             : place_.isAlive()          ? FailureKind::FileProblem
                                                         : FailureKind::ConnectionLost;
    const std::string copy = "the copy " + place_.display(target_) + " is complete";
    throw Failure(
        kind, "copied but did not remove", what + place_.display(source_),
        joinReasons(copy + (rest.empty() ? "" : ", the rest is in " + rest), reasonOf(why_)));
}

bool MoveByCopy::removeEntry(const std::string& root, const TreeEntry& entry)
{
    const auto& system = place_.system();
    const std::string path = entry.path.empty() ? root : joinPath(root, entry.path);
    const bool isRemoved = isDirectory(entry.info.type)
                               ? system.directoryRemove(path)
                               : isUnchanged(path, entry) && system.fileRemove(path);
    why_ = FileSystem::Failure::last();
    // A removal that was reported as failed may have been done.
    return isRemoved || (!system.fileInfo(path) && place_.isAlive());
}

bool MoveByCopy::isUnchanged(const std::string& path, const TreeEntry& entry) const
{
    const auto info = place_.system().fileInfo(path);
    return info && info->type == entry.info.type && info->size == entry.info.size &&
           info->modTime == entry.info.modTime;
}

/// Takes the copy back, whole or not.
void MoveByCopy::giveUp(const std::string& hint)
{
    const bool isClean = takeBack();
    fail(hint, isClean);
}

bool MoveByCopy::takeBack() const
{
    const auto& system = place_.system();
    return isTree() ? system.directoryRemove(target_, true) : system.fileRemove(target_);
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
