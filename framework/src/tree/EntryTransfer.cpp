#include "tree/EntryTransfer.h"

#include "failure/NewFailure.h"
#include "path/PathText.h"
#include "tree/HiddenName.h"
#include "tree/Replacement.h"
#include "tree/TreeWork.h"

#include <chrono>
#include <utility>

namespace FileSystem {

namespace {

constexpr const char* operation = "copy";
constexpr int mostNameTries = 8;

} // namespace

bool isRefusalOfName(const Failure& why)
{
    const auto code = why.code();
    return code == FailureCode::Denied || code == FailureCode::Unsupported ||
           code == FailureCode::BadName || code == FailureCode::Other;
}

EntryTransfer::EntryTransfer(CopyContext& context, TreeEntry entry, Standing standing,
                             bool mustBeNew)
    : context_(context)
    , entry_(std::move(entry))
    , standing_(std::move(standing))
    , mustBeNew_(mustBeNew)
{}

EntryTransfer::~EntryTransfer() = default;

void EntryTransfer::start(Done done)
{
    done_ = std::move(done);
    const auto self = shared_from_this();
    if (standing_.isKnown) {
        checkStanding();
    } else {
        lookAtStanding();
    }
    endIfIdle();
}

void EntryTransfer::stop()
{
    const auto self = shared_from_this();
    static_cast<void>(isEnding());
    endIfIdle();
}

/// Whether there is nothing left to go on with.
bool EntryTransfer::isEnding()
{
    if (isOver_ || isPublishing_) {
        return false;
    }
    if (context_.isStopped && !isGivenUp()) {
        giveUp(FailureCode::Cancelled, entry_.path);
    }
    return isGivenUp();
}

void EntryTransfer::endIfIdle()
{
    if (inFlight_ != 0) {
        return;
    }
    if (isGivenUp() && !isOver_) {
        isOver_ = true;
        cleanUp();
    }
    if (isOver_ && inFlight_ == 0 && done_) {
        finish();
    }
}

void EntryTransfer::giveUp(const Failure& failure)
{
    if (!isGivenUp()) {
        failure_ = failure;
    }
}

void EntryTransfer::giveUp(FailureCode code, const std::string& path, std::string text)
{
    giveUp(newFailure(operation, path, code, std::move(text)));
}

void EntryTransfer::repeat(FailureCode code, const std::string& path)
{
    if (!isGivenUp()) {
        isToBeRepeated_ = true;
        giveUp(code, path);
    }
}

void EntryTransfer::count(std::uint64_t bytes) noexcept
{
    bytes_ += bytes;
    context_.bytesDone += bytes;
}

void EntryTransfer::discount(std::uint64_t bytes) noexcept
{
    bytes_ -= bytes;
    context_.bytesDone -= bytes;
}

bool EntryTransfer::replacesFile() const noexcept
{
    const auto& standing = standing_.attributes;
    return standing && standing->type && isRegularFile(*standing->type);
}

void EntryTransfer::lookAtStanding()
{
    context_.target.lookUp(
        entry_.target, whatever<const Attributes&>([this](const Failure& failure, const auto& now) {
            if (!failure) {
                standing_.attributes = now;
            } else if (failure.code() != FailureCode::NotFound) {
                giveUp(failure);
                return;
            }
            checkStanding();
        }));
}

void EntryTransfer::checkStanding()
{
    standing_.isKnown = true;
    if (!standing_.attributes) {
        proceed();
    } else if (isReplaceable(*standing_.attributes)) {
        checkLink();
    }
}

/// Others write through a link that leads to a device, as through the names of the standard
/// streams.
void EntryTransfer::checkLink()
{
    if (!isSymbolicLink(*standing_.attributes)) {
        decide();
        return;
    }
    context_.target.lookThrough(
        entry_.target,
        whatever<const Attributes&>([this](const Failure& failure, const auto& behind) {
            if (!failure && behind.type && behind.type->isEmpty()) {
                giveUp(FailureCode::NotCopyable, entry_.target);
            } else {
                decide();
            }
        }));
}

void EntryTransfer::decide()
{
    if (mustBeNew_) {
        giveUp(FailureCode::Exists, entry_.target);
        return;
    }
    switch (context_.options.standing) {
    case TreeStanding::Keep:
        skip();
        return;
    case TreeStanding::Fail:
        giveUp(FailureCode::Exists, entry_.target);
        return;
    case TreeStanding::KeepSame:
        if (isSame()) {
            skip();
            return;
        }
        break;
    case TreeStanding::Replace:
    case TreeStanding::Resume:
        break;
    }
    proceed();
}

void EntryTransfer::proceed()
{
    if (context_.options.isDryRun) {
        const auto& attributes = entry_.attributes;
        count(isSymbolicLink(attributes) ? 0 : attributes.size.value_or(0));
        isOver_ = true;
        outcome_ = Outcome::Copied;
    } else {
        begin();
    }
}

bool EntryTransfer::isSame() const
{
    using std::chrono::floor;
    using std::chrono::seconds;
    const auto& here = entry_.attributes;
    const auto& there = *standing_.attributes;
    return replacesFile() && here.size && here.size == there.size && here.modTime &&
           there.modTime && floor<seconds>(*here.modTime) == floor<seconds>(*there.modTime);
}

void EntryTransfer::skip()
{
    isOver_ = true;
    outcome_ = Outcome::Skipped;
}

/// Gives up where it is not.
bool EntryTransfer::isReplaceable(const Attributes& now)
{
    if (const auto reason = Replacement::reasonToKeep(now)) {
        giveUp(*reason, entry_.target);
    }
    return !isGivenUp();
}

bool EntryTransfer::takeTemporaryPath()
{
    temporaryPath_ = hiddenPath(entry_.target, HiddenNameUse::Unfinished);
    return ++nameTries_ <= mostNameTries;
}

// Where nothing stood on a server, that would cost a round trip for every new file; without
// replacing, whoever renames looks.
void EntryTransfer::lookAgain()
{
    const bool isNew = !standing_.attributes && !context_.isTargetLocal;
    if (mustBeNew_ || isNew) {
        goOnAfterLook();
        return;
    }
    context_.target.lookUp(
        entry_.target, whatever<const Attributes&>([this](const Failure& failure, const auto& now) {
            lookedAgain(failure, now);
        }));
}

/// What somebody else has put in the place of a file meanwhile is not the one whose owner the copy
/// is to have.
void EntryTransfer::lookedAgain(const Failure& failure, const Attributes& now)
{
    if (failure && failure.code() != FailureCode::NotFound) {
        giveUp(failure);
        return;
    }
    if (!failure && !isReplaceable(now)) {
        return;
    }
    standsStill_ = !failure && now.type && isRegularFile(*now.type);
    if (replacesFile() && standsStill_) {
        auto& standing = *standing_.attributes;
        if (standing.owner && now.owner && *standing.owner != *now.owner) {
            giveUp(FailureCode::Changed, entry_.target, "its owner is another one");
            return;
        }
        if (standing.permissions && now.permissions) {
            standing.permissions = *standing.permissions & *now.permissions;
        }
    }
    goOnAfterLook();
}

void EntryTransfer::publish()
{
    if (temporaryPath_ == entry_.target) {
        published();
        return;
    }
    // Whoever says stop as the last bytes arrive is in time.
    if (isEnding()) {
        return;
    }
    isPublishing_ = true;
    const auto how = context_.options.standing;
    if (mustBeNew_ || how == TreeStanding::Fail || how == TreeStanding::Keep) {
        takeFreeName();
        return;
    }
    Replacement::Task task{temporaryPath_, entry_.target};
    task.isLocal = context_.isTargetLocal;
    task.isFree = std::exchange(isTargetFree_, false);
    Replacement::start(context_.target, operation, std::move(task),
                       always<const Replacement::Outcome&>(
                           [this](const Failure& why, const Replacement::Outcome& outcome) {
                               replaced(why, outcome);
                           }));
}

void EntryTransfer::replaced(const Failure& why, const Replacement::Outcome& outcome)
{
    if (why) {
        outcome.isRefused ? refusedName(why) : giveUp(why);
        return;
    }
    if (!outcome.left.empty()) {
        lose(newFailure(operation, entry_.target, FailureCode::NotRemoved,
                        "what stood there is left at " + outcome.left + ": " +
                            outcome.whyLeft.cause()));
    }
    published();
}

void EntryTransfer::takeFreeName()
{
    auto done = whatever<>([this](const Failure& why) {
        if (!why) {
            published();
        } else if (context_.options.standing == TreeStanding::Keep && !mustBeNew_) {
            keepWhatHasCome(why);
        } else {
            refusedName(why);
        }
    });
    if (std::exchange(isTargetFree_, false)) {
        context_.target.renameToFree(temporaryPath_, entry_.target, std::move(done));
    } else {
        context_.target.rename(temporaryPath_, entry_.target, std::move(done));
    }
}

/// What has come to the target since it was looked at is left there as what was there before.
void EntryTransfer::keepWhatHasCome(const Failure& why)
{
    context_.target.lookUp(entry_.target, whatever<const Attributes&>(
                                              [this, why](const Failure& failure, const auto&) {
                                                  isKept_ = !failure;
                                                  failure ? refusedName(why) : giveUp(why);
                                              }));
}

void EntryTransfer::rename(const std::string& from, const std::string& to,
                           std::function<void(const Failure&)> done)
{
    Replacement::rename(context_.target, from, to, always<>(std::move(done)));
}

void EntryTransfer::published()
{
    isTemporaryOwned_ = false;
    isOver_ = true;
    outcome_ = Outcome::Copied;
}

// Where a connection was lost, that may be the source's.
void EntryTransfer::cleanUp()
{
    closeAll();
    if (isTemporaryOwned_) {
        removeTemporary();
    } else {
        leave();
    }
}

/// Where that fails, the failure says what is left: nobody would look for it.
void EntryTransfer::removeTemporary()
{
    context_.target.removeFile(
        temporaryPath_, whatever<>([this](const Failure& failure) {
            const bool isGone = failure.code() == FailureCode::NotFound ||
                                failure.code() == FailureCode::ConnectionLost;
            if (failure && !isGone) {
                isToBeRepeated_ = false;
                isAnythingLeft_ = true;
                const auto text = failure_.text().empty() ? "" : failure_.text() + "; ";
                failure_ =
                    withText(failure_, text + temporaryPath_ + " cannot be removed and is left");
            }
        }));
}

void EntryTransfer::finish()
{
    if (isKept_) {
        outcome_ = Outcome::Skipped;
    }
    const auto done = std::exchange(done_, nullptr);
    done(*this);
}

} // namespace FileSystem
