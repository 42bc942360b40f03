#include "tree/DirectoryTransfer.h"

#include "failure/NewFailure.h"
#include "path/PathText.h"
#include "tree/TreeWork.h"

#include <utility>

namespace FileSystem {

namespace {

using Attributes = StorageSystemAttributes;

constexpr std::uint32_t stickyBit = 01000;
constexpr CopyContext::Permissions allOfTheOwner{0700U};
constexpr auto writtenByOthers =
    PosixFilePermissionFlag::GroupWrite | PosixFilePermissionFlag::OthersWrite;

/// Some systems have none of their own, or the same for all directories. Not Unsupported: so this
/// machine refuses to follow a link that stands there.
bool isForWantOfPermissions(const Failure& failure)
{
    return failure.code() == FailureCode::NotKept || failure.code() == FailureCode::Denied;
}

} // namespace

DirectoryTransfer::DirectoryTransfer(CopyContext& context, const TreeEntry& entry, bool isOurs)
    : context_(context)
    , entry_(entry)
    , isOurs_(isOurs)
{}

DirectoryTransfer::Mode DirectoryTransfer::modeOf(const Attributes& attributes)
{
    Mode mode{attributes.permissions.value_or(Permissions(0777U)), std::nullopt};
    if (attributes.specialBits) {
        mode.isSticky = (*attributes.specialBits & stickyBit) != 0;
    }
    return mode;
}

/// With the set-ID bits that it has.
Attributes DirectoryTransfer::toAttributes(const Mode& mode, const Attributes& now)
{
    Attributes attributes;
    attributes.permissions = mode.permissions;
    if (now.specialBits) {
        const auto others = *now.specialBits & ~stickyBit;
        attributes.specialBits = mode.isSticky.value_or(false) ? others | stickyBit : others;
    }
    return attributes;
}

void DirectoryTransfer::make(Made done)
{
    made_ = std::move(done);
    if (isNew_) {
        lookUpNew();
        return;
    }
    if (context_.options.preservesPermissions) {
        final_ = modeOf(entry_.attributes);
        // It says something only where others than the owner may write.
        if ((final_->permissions & writtenByOthers).isEmpty()) {
            final_->isSticky = false;
        }
    }
    begin();
}

/// The callbacks hold whoever holds this, so they go with their call.
void DirectoryTransfer::tellMade(const Failure& failure)
{
    const auto made = std::exchange(made_, nullptr);
    made(failure);
}

void DirectoryTransfer::tellFinished()
{
    const auto finished = std::exchange(finished_, nullptr);
    finished(losses_);
}

// Exclusively: a link to a directory, which would lead elsewhere, must not pass for a directory.
void DirectoryTransfer::begin()
{
    // The root and "." cannot be made, only be there.
    if (!PathText::isEntryName(PathText::fileName(entry_.target))) {
        refused(newFailure("copy", entry_.target, FailureCode::BadName));
        return;
    }
    const auto permissions = entry_.attributes.permissions.value_or(Permissions(0777U));
    // What others may look into is better off with these, should they not be set in the end, unless
    // they could remove from it what is not theirs.
    const bool isSticky = final_ && final_->isSticky.value_or(false);
    const bool isPrivate = final_ && (isSticky || context_.isStrict);
    asked_ = isPrivate ? allOfTheOwner : permissions | allOfTheOwner;
    const auto self = shared_from_this();
    context_.target.makeDirectory(entry_.target, asked_, [self](const Failure& why) {
        if (why) {
            self->refused(why);
            return;
        }
        self->isNew_ = true;
        self->lookUpNew();
    });
}

void DirectoryTransfer::lookUpNew()
{
    context_.target.lookUp(entry_.target,
                           [self = shared_from_this()](const Failure& failure, const auto& made) {
                               if (failure) {
                                   self->tellMade(failure);
                               } else {
                                   self->lookAtNew(made);
                               }
                           });
}

/// Whether it could not be made because it is there.
void DirectoryTransfer::refused(const Failure& why)
{
    context_.target.lookUp(entry_.target, [self = shared_from_this(), why](const Failure& failure,
                                                                           const auto& standing) {
        if (failure) {
            self->tellMade(why);
        } else if (standing.type && !isDirectory(standing)) {
            const bool isOther = standing.type->isEmpty();
            self->tellMade(
                newFailure("copy", self->entry_.target,
                           isOther ? FailureCode::NotCopyable : FailureCode::NotDirectory));
        } else {
            self->closeStanding(standing);
        }
    });
}

/// Lets a directory keep the sticky bit that it has, and asks none of a system that knows of none.
void DirectoryTransfer::adjustStickyBit(std::optional<bool> told)
{
    if (!told || *told) {
        final_->isSticky = told;
    }
}

/// A umask may have taken from the owner what filling it needs, and a server may give what it
/// likes.
void DirectoryTransfer::lookAtNew(const Attributes& made)
{
    if (made.type && !isDirectory(made)) {
        tellMade(newFailure("copy", entry_.target, FailureCode::Changed));
        return;
    }
    now_ = made;
    const auto mode = modeOf(made);
    if (final_) {
        adjustStickyBit(mode.isSticky);
    } else {
        const auto inTheEnd =
            mode.permissions & entry_.attributes.permissions.value_or(Permissions(0777U));
        if (inTheEnd != mode.permissions) {
            final_ = Mode{inTheEnd, mode.isSticky};
        }
    }
    const auto whileFilled = (mode.permissions & asked_) | allOfTheOwner;
    if (whileFilled == mode.permissions || !made.permissions) {
        tellMade({});
        return;
    }
    if (!final_) {
        final_ = mode;
    }
    // As far as the system has permissions at all.
    set(toAttributes({whileFilled, mode.isSticky}, now_),
        [self = shared_from_this()](const Failure&) { self->tellMade({}); });
}

/// Takes away, before the first entry, what a directory that was there has beyond the source's
/// permissions, if it is to have these. Where that is refused it is told in the end, when the same
/// is tried again. What another source has closed to its owner is open again until it is filled.
void DirectoryTransfer::closeStanding(const Attributes& standing)
{
    now_ = standing;
    const bool isClosed =
        standing.permissions && (*standing.permissions & allOfTheOwner) != allOfTheOwner;
    if (isOurs_ && !final_ && isClosed) {
        final_ = modeOf(standing);
    }
    if (!final_ || !standing.permissions) {
        tellMade({});
        return;
    }
    const auto mode = modeOf(standing);
    adjustStickyBit(mode.isSticky);
    const auto narrowed = (mode.permissions & final_->permissions) | allOfTheOwner;
    const bool isRight = narrowed == mode.permissions && mode.isSticky == final_->isSticky;
    if (isRight) {
        tellMade({});
        return;
    }
    set(toAttributes({narrowed, final_->isSticky}, now_),
        [self = shared_from_this()](const Failure&) { self->tellMade({}); });
}

void DirectoryTransfer::set(const Attributes& attributes, Made then)
{
    context_.target.setAttributes(entry_.target, attributes, std::move(then));
}

// The time first: permissions may forbid to set it.
void DirectoryTransfer::finish(Finished done)
{
    finished_ = std::move(done);
    losses_.clear();
    shortage_ = {};
    if (!context_.options.preservesTimes || !entry_.attributes.modTime) {
        setFinalMode();
        return;
    }
    Attributes attributes;
    attributes.modTime = entry_.attributes.modTime;
    set(attributes, [self = shared_from_this()](const Failure& why) {
        self->lose(why, "the modification time");
        self->setFinalMode();
    });
}

void DirectoryTransfer::setFinalMode()
{
    if (!final_) {
        tellFinished();
        return;
    }
    set(toAttributes(*final_, now_), [self = shared_from_this()](const Failure& why) {
        if (why && self->final_->isSticky.value_or(false)) {
            self->withoutSticky(why);
            return;
        }
        if (self->context_.options.preservesPermissions || !isForWantOfPermissions(why)) {
            self->lose(why, "the permissions");
        }
        self->tellFinished();
    });
}

/// The system may have given all but that bit, and then anybody could remove what is in it.
void DirectoryTransfer::withoutSticky(const Failure& why)
{
    set(toAttributes({final_->permissions.without(writtenByOthers), false}, now_),
        [self = shared_from_this(), why](const Failure&) {
            self->lose(why, "the permissions");
            self->tellFinished();
        });
}

void DirectoryTransfer::lose(const Failure& why, const char* what)
{
    if (why.code() == FailureCode::NoResources) {
        shortage_ = why;
    }
    const bool isAll = why.code() == FailureCode::ConnectionLost;
    if (why && (context_.isStrict || isAll)) {
        losses_.push_back(why);
    } else if (why) {
        losses_.push_back(newFailure("copy", entry_.target, FailureCode::NotKept,
                                     std::string(what) + ": " + why.cause()));
    }
}

} // namespace FileSystem
