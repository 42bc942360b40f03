#include "tree/EntryTransfer.h"

#include "failure/NewFailure.h"
#include "path/PathText.h"
#include "tree/HiddenName.h"
#include "tree/TreeWork.h"

#include <chrono>
#include <utility>

namespace FileSystem {

namespace {

constexpr const char* operation = "copy";
constexpr int mostNameTries = 8;

/// Whether a failure tells nothing of why a system does not replace in one step.
bool isVague(const Failure& failure)
{
    return failure.code() == FailureCode::Unsupported || failure.code() == FailureCode::Other;
}

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
    if (isDirectory(now)) {
        giveUp(FailureCode::IsDirectory, entry_.target);
    } else if (now.type && now.type->isEmpty()) {
        giveUp(FailureCode::NotCopyable, entry_.target);
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
    isPublishing_ = true;
    const auto how = context_.options.standing;
    if (mustBeNew_ || how == TreeStanding::Fail || how == TreeStanding::Keep) {
        takeFreeName();
        return;
    }
    context_.target.replace(temporaryPath_, entry_.target, whatever<>([this](const Failure& why) {
                                // One that the server was not asked for has taken no time.
                                const bool isStillFree =
                                    isTargetFree_ && why.source() != FailureSource::Server;
                                if (!why) {
                                    published();
                                } else if (isVague(why) && isStillFree) {
                                    takeFreeName();
                                } else if (isVague(why) && !context_.isTargetLocal) {
                                    replaceAfterLooking(why);
                                } else {
                                    refusedName(why);
                                }
                            }));
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

// Some servers replace whatever stands there, a directory with all below it as well.
void EntryTransfer::replaceAfterLooking(const Failure& why)
{
    context_.target.lookUp(entry_.target, whatever<const Attributes&>(
                                              [this, why](const Failure& failure, const auto& now) {
                                                  if (failure.code() == FailureCode::NotFound) {
                                                      takeFreeName();
                                                  } else if (failure) {
                                                      giveUp(why);
                                                  } else if (isReplaceable(now)) {
                                                      replaceInSteps();
                                                  }
                                              }));
}

void EntryTransfer::rename(const std::string& from, const std::string& to,
                           std::function<void(const Failure&)> done)
{
    context_.target.rename(
        from, to, always<>([this, from, to, done](const Failure& why) {
            if (!why) {
                done({});
                return;
            }
            const auto isThere = [done, why](const Failure& failure, const Attributes&) {
                done(failure ? why : Failure());
            };
            const auto isGone = [this, to, done, why, isThere](const Failure& failure,
                                                               const Attributes&) {
                if (failure.code() == FailureCode::NotFound) {
                    context_.target.lookUp(to, always<const Attributes&>(isThere));
                } else {
                    done(why);
                }
            };
            context_.target.lookUp(from, always<const Attributes&>(isGone));
        }));
}

/// Many servers refuse to rename onto something: it makes room, and is back when its place cannot
/// be taken after all.
void EntryTransfer::replaceInSteps()
{
    const auto aside = hiddenPath(entry_.target, HiddenNameUse::SetAside);
    rename(entry_.target, aside, [this, aside](const Failure& why) {
        if (why) {
            refusedName(why);
        } else {
            takePlaceOf(aside);
        }
    });
}

void EntryTransfer::takePlaceOf(const std::string& aside)
{
    rename(temporaryPath_, entry_.target, [this, aside](const Failure& why) {
        if (why) {
            bringBack(aside, why);
        } else {
            removeReplaced(aside);
            published();
        }
    });
}

void EntryTransfer::bringBack(const std::string& aside, const Failure& why)
{
    rename(aside, entry_.target, [this, aside, why](const Failure& failure) {
        const auto said = why.text().empty() ? "" : why.text() + "; ";
        giveUp(failure ? withText(why, said + "what stood there is at " + aside) : why);
    });
}

/// Under its hidden name nobody would look for it.
void EntryTransfer::removeReplaced(const std::string& aside)
{
    context_.target.removeFile(aside, whatever<>([this, aside](const Failure& why) {
                                   if (why && why.code() != FailureCode::NotFound) {
                                       tellReplacedLeft(aside, why);
                                   }
                               }));
}

/// Unless it is gone: a removal that is reported as failed may have been done all the same.
void EntryTransfer::tellReplacedLeft(const std::string& aside, const Failure& why)
{
    context_.target.lookUp(
        aside, whatever<const Attributes&>([this, aside, why](const Failure& failure, const auto&) {
            if (failure.code() != FailureCode::NotFound) {
                lose(newFailure(operation, entry_.target, FailureCode::NotRemoved,
                                "what stood there is left at " + aside + ": " + why.cause()));
            }
        }));
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
