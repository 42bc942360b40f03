#include "tree/SlotCopy.h"

#include "failure/CallbackScope.h"
#include "failure/NewFailure.h"
#include "path/EntryKind.h"
#include "path/NameCheck.h"
#include "path/PathText.h"
#include "tree/CopyLosses.h"
#include "tree/TreeCopier.h"
#include "tree/TreeSurvey.h"

#include <FileSystem/StorageSystem.h>

#include <chrono>
#include <utility>

namespace FileSystem {

namespace {

using Option = StorageSystemCopyOptionFlag;

/// Tells the caller's progress function, and ends the copy at the first failure.
class Follower final : public TreeObserver
{
public:
    Follower(const SlotCopyTask& task, std::uint64_t total)
        : task_(task)
        , total_(total)
    {}

    bool failed(const TreeEntry& entry, const Failure& failure) override
    {
        const bool isLoss =
            failure.code() == FailureCode::NotKept || failure.code() == FailureCode::NotRemoved;
        if (isLoss && task_.options.has(Option::PreserveBestEffort)) {
            losses_.add(entry.target, failure);
            return true;
        }
        if (failure.code() == FailureCode::NotRemoved) {
            return true; // The file has its name, and nobody asked for more.
        }
        failure_ = failure;
        return false;
    }

    /// When bytes have been written, and at least as often as anybody has to be asked whether to go
    /// on: the last time may come when the copy has its name already.
    bool progress(const TreeProgress& progress) override
    {
        const auto now = Clock::now();
        if (progress.bytesDone == told_ && now < nextTime_) {
            return true;
        }
        told_ = progress.bytesDone;
        nextTime_ = now + longestSilence;
        return goesOn(task_.progress, progress.bytesDone, total_);
    }

    void done(const TreeEntry& entry) override { isDone_ = isDone_ || entry.below.empty(); }

    /// All of it was copied.
    bool isDone() const noexcept { return isDone_; }

    const Failure& failure() const noexcept { return failure_; }

    const CopyLosses& losses() const noexcept { return losses_; }

private:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds longestSilence{100};

    const SlotCopyTask& task_;
    std::uint64_t total_;
    std::uint64_t told_ = 0;
    bool isDone_ = false;
    Clock::time_point nextTime_ = Clock::now() + longestSilence;
    Failure failure_;
    CopyLosses losses_;
};

/// \param left what could not be removed of other files.
bool failAs(const Failure& why, const std::string& left = {})
{
    const auto* const separator = why.text().empty() || left.empty() ? "" : "; ";
    return fail(why.code(), why.source(), why.number(), why.text() + separator + left, why.entry());
}

/// Looks through a tree that is to be copied: how many bytes it has. Empty: not all of it can be
/// copied, or the progress function said stop.
std::optional<std::uint64_t> surveyTree(const SlotCopyTask& task)
{
    TreeSurvey survey(task.source, task.target,
                      [&task](std::uint64_t bytes) { return goesOn(task.progress, 0, bytes); });
    const bool isCopyable = survey.survey(task.sourcePath) || failAs(survey.refusal());
    return isCopyable ? std::make_optional(survey.bytes()) : std::nullopt;
}

/// How much there is to copy of a file or a link. Empty: it cannot be copied.
std::optional<std::uint64_t> surveyEntry(const SlotCopyTask& task)
{
    if (!isFileOrLink(task.source, task.sourcePath, task.info.type)) {
        return std::nullopt;
    }
    if (isSymbolicLink(task.info.type)) {
        // With a slash behind it, it is what the link leads to that is meant.
        if (PathText::removeTrailingSlash(task.sourcePath) != task.sourcePath) {
            fail(FailureCode::NotALink, {}, task.sourcePath);
            return std::nullopt;
        }
        return task.target.hasSymbolicLinks() ||
                       fail(FailureCode::Unsupported, noLinksThere, task.sourcePath)
                   ? std::make_optional<std::uint64_t>(0)
                   : std::nullopt;
    }
    return task.info.size;
}

TreeCopyOptions optionsOf(const SlotCopyTask& task)
{
    TreeCopyOptions options;
    const bool mustBeNew = task.options.has(Option::FailIfExists);
    options.standing = mustBeNew ? TreeStanding::Fail : TreeStanding::Replace;
    options.preservesPermissions = task.options.has(Option::PreservePermissions);
    options.preservesTimes = task.options.has(Option::PreserveModTime);
    options.isInPlace = task.options.has(Option::InPlace);
    return options;
}

} // namespace

bool copyForSlot(const SlotCopyTask& task)
{
    const bool isTree = isDirectory(task.info.type) && task.options.has(Option::Recursive);
    if (!isTree && !isName(PathText::fileName(task.targetPath))) {
        return false;
    }
    if (isTree && leadsIntoItself(task.source, task.sourcePath, task.target, task.targetPath)) {
        return fail(FailureCode::IntoItself, {}, task.targetPath);
    }
    const auto total = isTree ? surveyTree(task) : surveyEntry(task);
    if (!total) {
        return false;
    }
    if (!goesOn(task.progress, 0, *total)) {
        return fail(FailureCode::Cancelled);
    }
    Follower follower(task, *total);
    TreeCopier copier(task.source, task.target, follower, optionsOf(task));
    copier.beStrict(!task.options.has(Option::PreserveBestEffort));
    copier.makeRootsNew(isTree && task.options.has(Option::FailIfExists));
    copier.movePieces(task.bufferSize.value_or(0));
    const auto report = copier.copy({{task.sourcePath, task.targetPath}});
    if (follower.failure()) {
        return failAs(follower.failure(), report.left);
    }
    if (report.isStopped && !follower.isDone()) {
        return fail(FailureCode::Cancelled, report.left);
    }
    return follower.losses().areNone();
}

} // namespace FileSystem
