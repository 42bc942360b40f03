#include "files/CopyRun.h"

#include "files/CopyFailure.h"
#include "files/FileCommand.h"
#include "files/Inquiry.h"
#include "files/Paths.h"
#include "terminal/Messages.h"
#include "terminal/Sizes.h"
#include "terminal/StandardStreams.h"
#include "terminal/Times.h"

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <utility>

#include <unistd.h>

namespace TarnisTool {

using FileSystem::FailureCode;
using FileSystem::TreeEntry;

namespace {

constexpr const char* cannotCopy = "cannot copy";
constexpr const char* notCopyable = "it is no file, directory or link";
constexpr const char* needsRecursion = "it is a directory; -r copies it and all below it";
constexpr const char* whereItGoesOn = ": the same command goes on from there";
constexpr const char* nestedTooDeep = "it is nested too deep";

bool hasType(const TreeEntry& entry)
{
    return entry.attributes.type.has_value();
}

bool isDirectory(const TreeEntry& entry)
{
    return hasType(entry) && isDirectory(*entry.attributes.type);
}

bool isRegularFile(const TreeEntry& entry)
{
    return hasType(entry) && isRegularFile(*entry.attributes.type);
}

/// One for a file, as FileSystem::TreeProgress counts them.
std::uint64_t filesIn(const TreeEntry& entry)
{
    const bool isFile =
        hasType(entry) && !isDirectory(entry) && !isSymbolicLink(*entry.attributes.type);
    return isFile ? 1 : 0;
}

std::uint64_t sizeOf(const TreeEntry& entry)
{
    return isRegularFile(entry) ? entry.attributes.size.value_or(0) : 0;
}

std::string counted(std::uint64_t count, const char* one, const char* many)
{
    return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

} // namespace

CopyRun::CopyRun(RemoteEndpoint& remote, Endpoint& from, Endpoint& to, const CopyOptions& options,
                 const Cancellation& cancellation)
    : remote_(remote)
    , from_(from)
    , to_(to)
    , options_(options)
    , cancellation_(cancellation)
{}

bool CopyRun::run(const Paths& paths)
{
    const Paths found = options_.isRecursive ? paths : followed(paths);
    const auto report = copyTree(from_.system(), to_.system(), found, *this, engineOptions());
    if (!lost_ && !report.left.empty()) {
        note(report.left);
    }
    if (report.isStopped) {
        throwIfCancelled(report);
    }
    if (lost_) {
        bar_.clear();
        remote_.throwLost(*lost_);
    }
    sumUp(report);
    return report.isComplete() && failed_ == 0;
}

/// The files that are to be copied, by their own paths.
CopyRun::Paths CopyRun::followed(const Paths& paths)
{
    struct Answer
    {
        FileSystem::Failure why;
        FileSystem::StorageSystemFileInfo info;
    };

    std::vector<Answer> answers(paths.size());
    Inquiry inquiry(from_);
    inquiry.expect(paths.size());
    for (std::size_t i = 0; i < paths.size(); ++i) {
        inquiry.lookUp(paths[i].source, [&answers, i](const auto& why, const auto& info) {
            answers[i] = {why, info};
        });
    }
    inquiry.finish();
    Paths found;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        throwIfCancelled({});
        try {
            found.push_back(
                {fileAt(paths[i].source, answers[i].why, answers[i].info), paths[i].target});
        } catch (const Failure& failure) {
            if (failure.kind() == FailureKind::ConnectionLost) {
                throw;
            }
            note(failure.what());
        }
    }
    return found;
}

/// What stands at a path, or where the link there leads.
std::string CopyRun::fileAt(const std::string& path, const FileSystem::Failure& why,
                            const FileSystem::StorageSystemFileInfo& info)
{
    if (why) {
        from_.failBecause("cannot find", path, why);
    }
    if (!isSymbolicLink(info.type)) {
        return path;
    }
    if (from_.leadsToNoFile(path)) {
        from_.refuse(cannotCopy, path, notCopyable);
    }
    auto target = from_.system().fileSymbolicLinkTargetFileId(path, true);
    if (!target) {
        from_.failBecause("cannot follow the link", path, FileSystem::Failure::last());
    }
    return std::move(*target);
}

FileSystem::TreeCopyOptions CopyRun::engineOptions() const
{
    FileSystem::TreeCopyOptions options;
    options.preservesPermissions = options_.preserves;
    options.preservesTimes = options_.preserves || options_.updates;
    options.isDryRun = options_.isDryRun;
    options.removesOthers = options_.removesOthers;
    options.standing = options_.updates         ? FileSystem::TreeStanding::KeepSame
                       : options_.keepsStanding ? FileSystem::TreeStanding::Keep
                                                : FileSystem::TreeStanding::Replace;
    options.isInPlace = options_.isInPlace;
    options.inFlight = options_.inFlight;
    if (options_.resumes) {
        options.standing = FileSystem::TreeStanding::Resume;
    }
    return options;
}

bool CopyRun::wants(const TreeEntry& entry)
{
    if (!entry.below.empty() && !options_.filter.takes(entry.below, isDirectory(entry))) {
        return false;
    }
    const bool isTooDeep = entry.path.size() > longestPath;
    if (isTooDeep || (isDirectory(entry) && !options_.isRecursive)) {
        note(from_.refusal(cannotCopy, entry.path, isTooDeep ? nestedTooDeep : needsRecursion)
                 .what());
        return false;
    }
    if (isRegularFile(entry) && options_.isInPlace) {
        unfinished_.insert(entry.target);
    }
    return true;
}

/// What was lost of an entry has been told before.
void CopyRun::done(const TreeEntry& entry)
{
    if (!losses_.empty()) {
        note("copied " + from_.display(entry.path) + " to " + to_.display(entry.target) + ", but " +
             std::exchange(losses_, {}));
    }
    tell(options_.isDryRun ? "would copy" : "copied", entry.path);
    unfinished_.erase(entry.target);
    noteSettled(entry.target);
}

void CopyRun::skipped(const TreeEntry& entry)
{
    tell(options_.isDryRun ? "would leave" : "left", entry.path);
    unfinished_.erase(entry.target);
    leaveOut(entry);
}

/// Entries that the filter leaves out are not removed from the target either.
bool CopyRun::removes(const TreeEntry& entry)
{
    return options_.filter.takes(entry.below, isDirectory(entry));
}

void CopyRun::removed(const TreeEntry& entry)
{
    tell(options_.isDryRun ? "would remove" : "removed", entry.path);
}

void CopyRun::kept(const TreeEntry& entry, const std::string& path, FileSystem::TreePart part)
{
    using Part = FileSystem::TreePart;
    if (part == Part::Taking) {
        noteTaken(entry.target, path);
        return;
    }
    noteSettled(entry.target);
    const std::string target = to_.display(entry.target);
    std::string text = "kept what was copied in ";
    if (part == Part::Standing) {
        text = "what stood at " + target + " is in ";
    } else if (part == Part::Emptied) {
        text = "the server has emptied what stood at " + target + "; what was copied is in ";
    } else if (part == Part::Returned) {
        returned_.insert(entry.target);
    }
    // Not counted: the failure that led to it is.
    bar_.clear();
    report(text + to_.display(path) + whereItGoesOn);
}

void CopyRun::noteTaken(const std::string& target, const std::string& part)
{
    taken_.emplace(target, part);
    sayLast();
}

void CopyRun::noteSettled(const std::string& target)
{
    if (taken_.erase(target) != 0) {
        sayLast();
    }
}

/// These words are printed if the program ends before the file has its name again.
void CopyRun::sayLast()
{
    lastWords_.reset();
    if (taken_.size() == 1) {
        const auto& [target, part] = *taken_.begin();
        lastWords_.emplace("what stood at " + to_.display(target) + " may be in " +
                           to_.display(part) + whereItGoesOn);
    } else if (!taken_.empty()) {
        lastWords_.emplace("what stood at " + std::to_string(taken_.size()) +
                           " paths may be in the files \".NAME.tarnis-part\" beside them" +
                           whereItGoesOn);
    }
}

bool CopyRun::failed(const TreeEntry& entry, const FileSystem::Failure& why)
{
    if (isLoss(why)) {
        lost_ = why;
        return false;
    }
    if (const auto loss = lossOf(why)) {
        losses_ += (losses_.empty() ? "" : "; ") + *loss;
    } else {
        note(failureOf(entry, why).what());
        leaveOut(entry);
    }
    return true;
}

/// What is not removed was not to be copied.
void CopyRun::leaveOut(const TreeEntry& entry)
{
    if (!entry.target.empty()) {
        leftBytes_ += sizeOf(entry);
        leftFiles_ += filesIn(entry);
    }
}

bool CopyRun::progress(const FileSystem::TreeProgress& progress)
{
    WorkProgress all;
    all.bytes =
        DoneOf{progress.bytesDone, progress.bytesFound - std::min(leftBytes_, progress.bytesFound)};
    if (progress.filesFound > 1) {
        all.count = DoneOf{progress.filesDone - std::min(leftFiles_, progress.filesDone),
                           progress.filesFound - std::min(leftFiles_, progress.filesFound)};
    }
    if (progress.entry != nullptr) {
        bar_.setLabel(nameOf(progress.entry->target));
    }
    all.areTotalsKnown = progress.isAllFound;
    bar_.show(all);
    return !cancellation_.isRequested();
}

Failure CopyRun::failureOf(const TreeEntry& entry, const FileSystem::Failure& why)
{
    const auto& operation = why.operation();
    if (entry.target.empty()) {
        return to_.failureBecause("cannot remove", entry.path, why);
    }
    if (operation == "lookUp" && why.path() == entry.path) {
        return from_.failureBecause("cannot find", entry.path, why);
    }
    if (why.code() == FailureCode::TooDeep) {
        return from_.refusal(cannotCopy, entry.path, nestedTooDeep);
    }
    if (why.code() == FailureCode::NotCopyable && why.entry() == entry.path) {
        return from_.refusal(cannotCopy, entry.path, notCopyable);
    }
    return isDirectory(entry)
               ? directoryFailure(entry, why)
               : copyFailure(from_.display(entry.path), entry.path, to_, entry.target, why);
}

Failure CopyRun::directoryFailure(const TreeEntry& entry, const FileSystem::Failure& why)
{
    if (why.code() == FailureCode::IntoItself) {
        return from_.refusal(cannotCopy, entry.path, "the copy would be inside of it");
    }
    if (why.operation() == "list") {
        return why.code() == FailureCode::Changed
                   ? from_.refusal(cannotCopy, entry.path, "it is no directory any more")
               : why.code() == FailureCode::NotDirectory
                   ? from_.refusal(cannotCopy, entry.path, notCopyable)
                   : from_.failureBecause("cannot list", entry.path, why);
    }
    if (why.code() == FailureCode::Changed && why.path() == entry.path) {
        return to_.refusal("what stands in", entry.target,
                           "it may be from elsewhere, since " + from_.display(entry.path) +
                               " is no directory any more");
    }
    const bool isTaken =
        why.code() == FailureCode::NotDirectory || why.code() == FailureCode::NotCopyable;
    return to_.failureBecause("cannot make the directory", entry.target, why,
                              isTaken ? "something else stands there"
                                      : to_.writingProblem(entry.target));
}

void CopyRun::tell(const char* what, const std::string& path)
{
    if (!options_.isVerbose && !options_.isDryRun) {
        return;
    }
    bar_.clear();
    std::cout << what << ' ' << forOutput(textOf(path)) << '\n';
}

void CopyRun::sumUp(const FileSystem::TreeReport& report)
{
    using std::chrono::steady_clock;
    bar_.end();
    flushOutput();
    const bool isSeen = ::isatty(STDERR_FILENO) == 1;
    if (isQuiet() || (!isSeen && !options_.isVerbose)) {
        return;
    }
    const auto took =
        std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now() - start_);
    const auto removed = report.removed == 0 ? "" : std::to_string(report.removed) + " removed, ";
    const auto skipped = report.skipped == 0 ? "" : std::to_string(report.skipped) + " left, ";
    const auto failed = failed_ == 0 ? "" : std::to_string(failed_) + " failed, ";
    reportNote(std::string(options_.isDryRun ? "would copy " : "copied ") +
               counted(report.files, "file", "files") + ", " +
               counted(report.directories, "directory", "directories") + ", " +
               counted(report.links, "link", "links") + ", " + humanSize(report.bytes) + ", " +
               skipped + removed + failed + "in " + humanDuration(took));
}

void CopyRun::note(const std::string& failure)
{
    bar_.clear();
    ++failed_;
    report(failure);
}

void CopyRun::throwIfCancelled(const FileSystem::TreeReport& report)
{
    if (!cancellation_.isRequested()) {
        return;
    }
    bar_.clear();
    flushOutput();
    throw Failure(FailureKind::Cancelled, "interrupted after",
                  counted(report.files, "file", "files") + ", " + humanSize(report.bytes),
                  remote_.isAlive() && !returned_.empty()
                      ? "a part of the file is in " + to_.display(*returned_.begin())
                      : leftByInterruption(remote_.isAlive(), whatIsHalfWritten()));
}

/// Empty for nothing.
std::string CopyRun::whatIsHalfWritten() const
{
    return unfinished_.empty()       ? ""
           : unfinished_.size() == 1 ? to_.display(*unfinished_.begin())
                                     : "what was not complete";
}

} // namespace TarnisTool
