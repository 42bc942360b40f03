#include "tree/Replacement.h"

#include "failure/NewFailure.h"
#include "path/PathText.h"
#include "tree/HiddenName.h"
#include "tree/TreeWork.h"

#include <utility>

namespace FileSystem {

namespace {

/// Whether a failure tells nothing of why a system does not replace in one step.
bool isVague(const Failure& failure)
{
    return failure.code() == FailureCode::Unsupported || failure.code() == FailureCode::Other;
}

/// Why a step has failed after which something was looked for: everything else fails for a loss.
const Failure& lossOr(const Failure& why, const Failure& looking)
{
    const bool isLost = looking.code() == FailureCode::ConnectionLost;
    return isLost && why.code() != FailureCode::ConnectionLost ? looking : why;
}

} // namespace

Replacement::Replacement(StorageSystemQueue& queue, const char* operation, Task task, Done done)
    : queue_(queue)
    , operation_(operation)
    , task_(std::move(task))
    , done_(std::move(done))
    , from_(task_.from)
{}

void Replacement::start(StorageSystemQueue& queue, const char* operation, Task task, Done done)
{
    const std::shared_ptr<Replacement> replacement(
        new Replacement(queue, operation, std::move(task), std::move(done)));
    replacement->begin();
}

std::optional<FailureCode> Replacement::reasonToKeep(const StorageSystemAttributes& standing)
{
    if (isDirectory(standing)) {
        return FailureCode::IsDirectory;
    }
    return standing.type && standing.type->isEmpty() ? std::make_optional(FailureCode::NotCopyable)
                                                     : std::nullopt;
}

void Replacement::rename(StorageSystemQueue& queue, const std::string& from, const std::string& to,
                         StorageSystemQueue::Completion<> done)
{
    queue.rename(from, to, [&queue, from, to, done = std::move(done)](const Failure& why) {
        if (!why) {
            done({});
            return;
        }
        queue.lookUp(from,
                     [&queue, from, to, done, why](const Failure& failure, const Attributes&) {
                         if (failure.code() == FailureCode::NotFound) {
                             lookWhetherRenamed(queue, from, to, why, done);
                         } else {
                             done(lossOr(why, failure));
                         }
                     });
    });
}

/// Nothing stands where it was renamed from. What the system saw at the new path before it did
/// anything cannot be what was renamed.
void Replacement::lookWhetherRenamed(StorageSystemQueue& queue, const std::string& from,
                                     const std::string& to, const Failure& why,
                                     const StorageSystemQueue::Completion<>& done)
{
    const bool wasTaken =
        why.code() == FailureCode::Exists && why.source() != FailureSource::Server;
    queue.lookUp(to, [from, why, done, wasTaken](const Failure& failure, const Attributes&) {
        if (wasTaken || failure.code() == FailureCode::NotFound) {
            done(newFailure("rename", from, FailureCode::NotFound));
        } else {
            done(failure ? lossOr(why, failure) : Failure());
        }
    });
}

void Replacement::begin()
{
    queue_.replace(task_.from, task_.to, [self = shared_from_this()](const Failure& why) {
        why ? self->refused(why) : self->end({});
    });
}

/// Where a system that replaces in one step has told why it does not, any other way would end the
/// same, with the file missing for a moment. A server's plain "failure" tells nothing.
void Replacement::refused(const Failure& why)
{
    // One that the server was not asked for has taken no time.
    const bool isStillFree = task_.isFree && why.source() != FailureSource::Server;
    if (isVague(why) && isStillFree) {
        takeFreeName();
    } else if (isVague(why) && !task_.isLocal) {
        look(why);
    } else {
        end(why, {true});
    }
}

// Some servers replace whatever stands there, a directory with all below it as well.
void Replacement::look(const Failure& why)
{
    queue_.lookUp(task_.to,
                  [self = shared_from_this(), why](const Failure& failure, const Attributes& now) {
                      self->looked(why, failure, now);
                  });
}

void Replacement::looked(const Failure& why, const Failure& failure, const Attributes& now)
{
    if (failure.code() == FailureCode::NotFound) {
        takeFreeName();
    } else if (failure) {
        end(why);
    } else if (const auto reason = reasonToKeep(now)) {
        end(newFailure(operation_, task_.to, *reason));
    } else if (PathText::parentId(task_.from) == PathText::parentId(task_.to)) {
        setAside();
    } else {
        comeNear();
    }
}

void Replacement::takeFreeName()
{
    const auto done = [self = shared_from_this()](const Failure& why) {
        self->end(why, {static_cast<bool>(why)});
    };
    if (task_.isFree) {
        queue_.renameToFree(task_.from, task_.to, done);
    } else {
        queue_.rename(task_.from, task_.to, done);
    }
}

/// One that may not leave its place, or is on another volume, never makes what it is to replace
/// vanish.
void Replacement::comeNear()
{
    const auto near = hiddenPath(task_.to, HiddenNameUse::Unfinished);
    rename(queue_, task_.from, near, [self = shared_from_this(), near](const Failure& why) {
        if (why) {
            self->end(why, {true});
            return;
        }
        self->from_ = near;
        self->setAside();
    });
}

// What stands there is set aside and not removed first: nothing is lost on a server that refuses to
// rename at all.
void Replacement::setAside()
{
    aside_ = hiddenPath(task_.to, HiddenNameUse::SetAside);
    rename(queue_, task_.to, aside_, [self = shared_from_this()](const Failure& why) {
        why ? self->lookWhetherGone(why) : self->takePlace();
    });
}

/// What stood there may have been the file itself, which has come near since.
void Replacement::lookWhetherGone(const Failure& why)
{
    queue_.lookUp(task_.to, [self = shared_from_this(), why](const Failure& failure,
                                                             const Attributes& /*now*/) {
        const bool isGone = failure.code() == FailureCode::NotFound;
        isGone ? self->takeEmptyPlace() : self->goBack(why, true);
    });
}

void Replacement::takeEmptyPlace()
{
    queue_.rename(from_, task_.to, [self = shared_from_this()](const Failure& why) {
        why ? self->goBack(why, true) : self->end({});
    });
}

void Replacement::takePlace()
{
    rename(queue_, from_, task_.to, [self = shared_from_this()](const Failure& why) {
        why ? self->bringBack(why) : self->removeReplaced();
    });
}

void Replacement::bringBack(const Failure& why)
{
    rename(queue_, aside_, task_.to, [self = shared_from_this(), why](const Failure& failure) {
        const auto said = why.text().empty() ? "" : why.text() + "; ";
        self->goBack(failure ? withText(why, said + "what stood there is at " + self->aside_) : why,
                     false);
    });
}

/// To where it has come from.
void Replacement::goBack(const Failure& why, bool isRefused)
{
    if (from_ == task_.from) {
        end(why, {isRefused});
        return;
    }
    rename(queue_, from_, task_.from,
           [self = shared_from_this(), why, isRefused](const Failure& /*failure*/) {
               self->end(why, {isRefused});
           });
}

/// Under its hidden name nobody would look for it.
void Replacement::removeReplaced()
{
    queue_.removeFile(aside_, [self = shared_from_this()](const Failure& why) {
        if (why && why.code() != FailureCode::NotFound) {
            self->lookWhetherLeft(why);
        } else {
            self->end({});
        }
    });
}

/// A removal that is reported as failed may have been done all the same.
void Replacement::lookWhetherLeft(const Failure& why)
{
    queue_.lookUp(aside_, [self = shared_from_this(), why](const Failure& failure,
                                                           const Attributes& /*now*/) {
        const bool isGone = failure.code() == FailureCode::NotFound;
        self->end({}, isGone ? Outcome() : Outcome{false, self->aside_, why});
    });
}

void Replacement::end(const Failure& why)
{
    end(why, Outcome());
}

void Replacement::end(const Failure& why, const Outcome& outcome)
{
    const auto done = std::exchange(done_, nullptr);
    done(why, outcome);
}

} // namespace FileSystem
