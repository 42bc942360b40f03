#include "files/TreeCopy.h"

#include "files/CopyLoss.h"
#include "files/Destination.h"
#include "files/EntryNames.h"
#include "files/NewDirectory.h"
#include "files/TreeWalk.h"
#include "terminal/Messages.h"
#include "terminal/Units.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace TarnisTool {

namespace {

using Option = FileSystem::StorageSystemCopyOptionFlag;

/// What is known of the target that keeps it from being copied to; empty for nothing.
std::string targetProblem(const FileSystem::Failure& failure)
{
    if (failure.code() == FileSystem::FailureCode::Exists) {
        return "another source of this call has gone there, or somebody else's file has come";
    }
    return failure.code() == FileSystem::FailureCode::NotCopyable
               ? "a pipe, a socket or a device stands there, or is where the link leads: that is "
                 "not replaced"
               : "";
}

/// With the letters of ASCII small.
std::string foldCase(std::string path)
{
    std::transform(path.begin(), path.end(), path.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return path;
}

constexpr const char* notCopyable = "it is no file, directory or link";
constexpr const char* whereItGoesOn = ": the same command goes on from there";

} // namespace

TreeCopy::TreeCopy(Place& from, Place& to, CopyOptions options, const Cancellation& cancellation)
    : from_(from)
    , to_(to)
    , options_(options)
    , cancellation_(cancellation)
{}

void TreeCopy::add(const std::string& source, const std::string& target)
{
    Job job{source, target, {}, from_.find(source)};
    if (isSymbolicLink(job.info.type) && !options_.isRecursive) {
        if (from_.leadsToNoFile(source)) {
            from_.refuse("cannot copy", source, notCopyable);
        }
        job.source = followLink(source);
        job.info = from_.find(job.source);
    }
    if (!isDirectory(job.info.type)) {
        addJob(std::move(job));
        return;
    }
    if (!options_.isRecursive) {
        from_.refuse("cannot copy", source, "it is a directory; -r copies it and all below it");
    }
    if (&from_ == &to_ && isWithin(from_.system(), target, source)) {
        from_.refuse("cannot copy", source, "the copy would be inside of it");
    }
    if (!from_.isDirectoryItself(source)) {
        from_.refuse("cannot copy", source, notCopyable);
    }
    addTree(job);
}

std::string TreeCopy::followLink(const std::string& source)
{
    auto target = from_.system().fileSymbolicLinkTargetFileId(source, true);
    if (!target) {
        from_.failBecause("cannot follow the link", source, FileSystem::Failure::last());
    }
    return std::move(*target);
}

void TreeCopy::addTree(const Job& root)
{
    addJob(root);
    TreeWalk walk(from_, cancellation_);
    for (auto& [path, info] : walk.entriesBelow(root.source)) {
        const auto slash = path.rfind('/');
        const std::string parent =
            slash == std::string::npos ? root.target : joinPath(root.target, path.substr(0, slash));
        try {
            addJob({joinPath(root.source, path), joinPath(root.target, path), parent,
                    std::move(info)});
        } catch (const Failure& failure) {
            from_.requireAlive();
            hasFailed_ = true;
            report(failure.what());
        }
    }
    hasFailed_ = hasFailed_ || walk.isIncomplete();
}

void TreeCopy::addJob(Job job)
{
    if (!isDirectory(job.info.type) && !claim(job)) {
        return;
    }
    if (isRegularFile(job.info.type)) {
        totalBytes_ += job.info.size;
    }
    jobs_.push_back(std::move(job));
}

/// Takes the target for this source; false for one that has it already, which is copied once.
bool TreeCopy::claim(const Job& job)
{
    const std::string source = from_.system().pathCanonize(job.source);
    const auto [claim, isNew] = claims_.emplace(to_.system().pathCanonize(job.target), source);
    if (claim->second != source) {
        to_.refuse("cannot copy " + from_.display(job.source) + " to", job.target,
                   "another source of this call goes there");
    }
    if (isNew) {
        foldedClaims_.insert(foldCase(claim->first));
    }
    return isNew;
}

bool TreeCopy::run()
{
    bar_ = std::make_unique<ProgressBar>(totalBytes_);
    for (const Job& job : jobs_) {
        throwIfCancelled();
        if (failedDirectories_.count(job.parentTarget) != 0) {
            failedDirectories_.insert(job.target);
            continue;
        }
        try {
            copy(job);
            filledDirectories_.insert(job.parentTarget);
        } catch (const Failure& failure) {
            throwIfCancelled();
            from_.requireAlive();
            to_.requireAlive();
            note(failure.what());
            failedDirectories_.insert(job.target);
        }
    }
    checkDirectories();
    finishDirectories();
    return !hasFailed_;
}

void TreeCopy::copy(const Job& job)
{
    if (isDirectory(job.info.type)) {
        makeDirectory(job);
    } else if (isSymbolicLink(job.info.type)) {
        copyLink(job);
    } else if (isRegularFile(job.info.type)) {
        copyFile(job);
    } else {
        from_.refuse("cannot copy", job.source, notCopyable);
    }
}

void TreeCopy::makeDirectory(const Job& job)
{
    // A link to a directory would lead elsewhere.
    if (!to_.system().directoryExists(job.target, false)) {
        madeDirectories_.push_back(makeNew(job));
        newDirectories_.insert(job.target);
    } else if (!to_.isDirectoryItself(job.target)) {
        to_.refuse("cannot make the directory", job.target, "something else stands there");
    } else {
        madeDirectories_.push_back({&job, std::nullopt});
        if (options_.preserves) {
            const auto wanted = from_.withStickyBit(job.source, job.info.permissions);
            madeDirectories_.back().permissions = to_.withStickyBit(job.target, wanted);
            closeStanding(job, *madeDirectories_.back().permissions);
        }
    }
    // One of another source may have failed there.
    failedDirectories_.erase(job.target);
}

/// Takes from a directory that was there, before anything is put into it, what it is not to have in
/// the end. Where that cannot be done it cannot be then either, and is told then.
void TreeCopy::closeStanding(const Job& job, Permissions inTheEnd)
{
    const auto& system = to_.system();
    const auto standing = system.directoryInfo(job.target);
    const auto has = standing ? standing->permissions : job.info.permissions;
    const auto wanted = (has & inTheEnd) | allOfTheOwner;
    const auto sticky = inTheEnd & stickyBit;
    if (wanted != has || !sticky.isEmpty()) {
        static_cast<void>(system.directorySetPermissions(job.target, wanted | sticky));
    }
}

TreeCopy::MadeDirectory TreeCopy::makeNew(const Job& job)
{
    // What is to keep permissions of its own is nobody else's to look into before it has them.
    const auto wanted = options_.preserves ? allOfTheOwner : job.info.permissions | allOfTheOwner;
    const auto made = makeNewDirectory(to_.system(), job.target, wanted);
    if (!made) {
        const auto why = FileSystem::Failure::last();
        const bool isTaken = to_.system().fileExists(job.target);
        to_.failBecause("cannot make the directory", job.target, why,
                        isTaken ? "something else stands there" : to_.writingProblem(job.target));
    }
    if (options_.preserves) {
        return {&job, from_.withStickyBit(job.source, job.info.permissions)};
    }
    const bool isOnlyWhileFilled = made->isWidened || wanted != job.info.permissions;
    return {&job, isOnlyWhileFilled ? std::optional(made->permissions & job.info.permissions)
                                    : std::nullopt};
}

void TreeCopy::copyLink(const Job& job)
{
    if (to_.system().directoryExists(job.target, false)) {
        to_.refuse("cannot make the link", job.target, "a directory stands there");
    }
    copyWhole(job);
}

void TreeCopy::copyFile(const Job& job)
{
    bar_->setLabel(nameOf(job.target));
    resumeFile(job);
    doneBytes_ += job.info.size;
    ++doneFiles_;
}

/// Whether nothing of this call may stand at the target yet: what does has come from another source
/// whose name the target's volume does not tell from this one.
bool TreeCopy::mustBeNew(const Job& job) const
{
    if (newDirectories_.count(job.parentTarget) != 0) {
        return true;
    }
    if (foldedClaims_.count(foldCase(to_.system().pathCanonize(job.target))) < 2) {
        return false;
    }
    // Where names are told apart by their case, an earlier call may have brought both.
    const auto& system = to_.system();
    const std::string name = system.pathFileName(job.target);
    const auto names = system.directoryReadFully(system.pathParentId(job.target));
    return names && std::none_of(names->begin(), names->end(),
                                 [&](const auto& entry) { return entry.name == name; });
}

void TreeCopy::copyWhole(const Job& job)
{
    const auto progress = [this](std::uint64_t done, std::uint64_t /*total*/) {
        return noteProgress(done);
    };
    auto flags = copyFlags();
    if (mustBeNew(job)) {
        flags |= Option::FailIfExists;
    }
    if (from_.system().fileCopyAs(job.source, to_.system(), job.target, progress, flags)) {
        return;
    }
    const auto failure = FileSystem::Failure::last();
    const auto loss = lossOf(failure);
    if (!loss) {
        throw failureOf(job, failure, targetProblem(failure), failure.text());
    }
    noteLoss(job, *loss);
}

void TreeCopy::resumeFile(const Job& job)
{
    if (mustBeNew(job) && to_.system().fileInfo(job.target)) {
        to_.refuse("cannot copy " + from_.display(job.source) + " to", job.target,
                   "another source of this call goes there");
    }
    std::optional<LastWords> lastWords;
    const auto renaming = [&](const std::string& part) {
        lastWords.emplace("what stood at " + to_.display(job.target) + " may be in " +
                          to_.display(part) + whereItGoesOn);
    };
    ResumedCopy copy(
        from_.system(), to_.system(), copyFlags(),
        [this](std::uint64_t done) { return noteProgress(done); }, renaming);
    const auto use = [&](const std::string& part) { return useOf(job, part); };
    if (copy.run(job.source, job.target, use)) {
        if (!copy.lost().empty()) {
            noteLoss(job, copy.lost());
        }
        return;
    }
    noteWhatIsKept(job, copy);
    throw failureOf(job, copy.failure(), copy.problem(), copy.failure().text());
}

void TreeCopy::noteWhatIsKept(const Job& job, const ResumedCopy& copy)
{
    using StandingAt = ResumedCopy::StandingAt;
    const std::string kept = copy.keptAt();
    if (kept.empty()) {
        return;
    }
    const std::string target = to_.display(job.target);
    std::string text = "kept what was copied in ";
    if (copy.standingAt() == StandingAt::Part) {
        text = "what stood at " + target + " is in ";
    } else if (copy.standingAt() == StandingAt::Nowhere) {
        text = "the server has emptied what stood at " + target + "; what was copied is in ";
    } else if (copy.standingAt() == StandingAt::TargetAgain) {
        halfWritten_ = "a part of the file is in " + target;
    }
    note(text + to_.display(kept) + whereItGoesOn);
}

/// Whether a path beside a job's target is for a file of the source: one that is copied too, or
/// stands beside the job's own. A copy of this has its size; what has another may be a part that
/// was there before.
ResumedCopy::PathUse TreeCopy::useOf(const Job& job, const std::string& path) const
{
    using Use = ResumedCopy::PathUse;
    if (claims_.count(to_.system().pathCanonize(path)) != 0) {
        return Use::Taken;
    }
    if (!job.parentTarget.empty()) {
        return Use::None;
    }
    const auto& system = from_.system();
    const std::string name = to_.system().pathFileName(path);
    const auto neighbour =
        system.fileInfo(system.pathChildId(system.pathParentId(job.source), {name}));
    if (!neighbour) {
        return Use::None;
    }
    const auto there = to_.system().fileInfo(path);
    return there && there->size != neighbour->size ? Use::Doubtful : Use::Taken;
}

/// The file is there all the same.
void TreeCopy::noteLoss(const Job& job, const std::string& what)
{
    note("copied " + from_.display(job.source) + " to " + to_.display(job.target) + ", but " +
         what);
}

bool TreeCopy::noteProgress(std::uint64_t done)
{
    bar_->show(doneBytes_ + done);
    return !cancellation_.isRequested();
}

/// \param hint what the program knows itself; in front of what was said.
Failure TreeCopy::failureOf(const Job& job, const FileSystem::Failure& why, const std::string& hint,
                            const std::string& said)
{
    using FileSystem::FailureCode;
    // What is not there may be the directory that the file was to go to.
    const bool isUnexplained =
        hint.empty() && (why.code() == FailureCode::Other || why.code() == FailureCode::NotFound);
    const std::string problem = isUnexplained ? to_.writingProblem(job.target) : hint;
    return {FailureKind::FileProblem, "cannot copy",
            from_.display(job.source) + " to " + to_.display(job.target),
            problem.empty() ? reasonOf(why) : joinReasons(problem, said)};
}

Utilities::Flags<Option> TreeCopy::copyFlags() const
{
    Utilities::Flags<Option> flags = Option::PreserveBestEffort;
    if (options_.preserves) {
        flags |= Option::PreservePermissions | Option::PreserveModTime;
    }
    return flags;
}

/// While files were copied by their paths, a link may have taken the place of a directory above
/// them.
void TreeCopy::checkDirectories()
{
    for (const auto& [job, permissions] : madeDirectories_) {
        throwIfCancelled();
        if (filledDirectories_.count(job->target) != 0 &&
            !from_.system().directoryExists(job->source, false)) {
            from_.requireAlive();
            note("what stands in " + to_.display(job->target) + " may be from elsewhere: " +
                 from_.display(job->source) + " is no directory any more");
        }
    }
}

/// When everything is in place: what is put into a directory changes its time, and may need
/// permissions that it is not to keep. The deepest first.
void TreeCopy::finishDirectories()
{
    for (auto made = madeDirectories_.rbegin(); made != madeDirectories_.rend(); ++made) {
        finish(*made);
    }
}

void TreeCopy::finish(const MadeDirectory& made)
{
    const auto& system = to_.system();
    const auto& job = *made.job;
    const bool isTimeSet =
        !options_.preserves || system.directorySetModTime(job.target, job.info.modTime);
    if (isTimeSet &&
        (!made.permissions || system.directorySetPermissions(job.target, *made.permissions))) {
        return;
    }
    const auto why = FileSystem::Failure::last();
    if (isTimeSet && !(*made.permissions & stickyBit).isEmpty()) {
        // It may have all but that bit, and then anybody could remove what is in it.
        static_cast<void>(system.directorySetPermissions(
            job.target, made.permissions->without(stickyBit | writtenByOthers)));
    }
    note("cannot keep permissions and time of " + to_.display(job.target) + ": " + why.cause());
}

void TreeCopy::note(const std::string& failure)
{
    bar_->clear();
    hasFailed_ = true;
    report(failure);
}

void TreeCopy::throwIfCancelled() const
{
    if (!cancellation_.isRequested()) {
        return;
    }
    bar_->clear();
    const std::string files = std::to_string(doneFiles_) + (doneFiles_ == 1 ? " file" : " files");
    std::string state = "the connection was given up; a part of a file may be left there";
    if (from_.isAlive() && to_.isAlive()) {
        state = halfWritten_.empty() ? "no half-written file has taken its name" : halfWritten_;
    }
    throw Failure(FailureKind::Cancelled, "interrupted after", files + ", " + humanSize(doneBytes_),
                  state);
}

} // namespace TarnisTool
