#include "tree/InPlaceTransfer.h"

#include "failure/NewFailure.h"
#include "path/LinkResolution.h"

#include <utility>

namespace FileSystem {

using Mode = StorageSystemFileOpenModeFlag;

namespace {

constexpr CopyContext::Permissions mayRead{0444U};
constexpr const char* sameFile = "it is the source itself";

} // namespace

InPlaceTransfer::InPlaceTransfer(CopyContext& context, TreeEntry entry, Standing standing,
                                 bool mustBeNew)
    : FileTransfer(context, std::move(entry), std::move(standing), mustBeNew)
{}

InPlaceTransfer::~InPlaceTransfer() = default;

/// A link is not written through, but replaced.
bool InPlaceTransfer::takeTemporaryPath()
{
    if (standing()) {
        return FileTransfer::takeTemporaryPath();
    }
    const bool isFirst = temporaryPath().empty();
    useFinalPath();
    return isFirst;
}

/// Nothing is dropped from what stands there before it is known not to be the source under another
/// name, and closed to those to whom the source is.
void InPlaceTransfer::openTarget(const Attributes& source)
{
    source_ = source;
    if (!replacesFile()) {
        FileTransfer::openTarget(source);
        return;
    }
    if (mayBeItself()) {
        return;
    }
    useFinalPath();
    context().target.openItself(entry().target, Mode::Write,
                                always<File>([this](const Failure& why, File file) {
                                    if (why) {
                                        giveUp(why);
                                    } else {
                                        openedStanding(file);
                                    }
                                }));
}

/// Whether source and target may be one file of a system that cannot tell by its open files: some
/// servers empty a file whenever it is opened for writing. Gives up then.
bool InPlaceTransfer::mayBeItself()
{
    if (!context().isOneSystem() || context().isTargetLocal) {
        return false;
    }
    const auto isOne = isOnePlace(context().targetSystem, entry().path, entry().target);
    if (isOne && !*isOne && (source_.identity || !looksLikeItself())) {
        return false;
    }
    const bool isKnown = isOne && *isOne;
    giveUp(FailureCode::IntoItself, entry().target,
           isKnown ? sameFile : "it cannot be told from its source");
    return true;
}

/// Whether what stands at the other path could be another name of the source, as a hard link is, or
/// one in another case. There would be nothing to lose of an empty file.
bool InPlaceTransfer::looksLikeItself() const
{
    const auto& there = *standing();
    return source_.size.value_or(1) != 0 && source_.size == there.size &&
           source_.modTime == there.modTime && source_.permissions == there.permissions;
}

void InPlaceTransfer::openedStanding(File file)
{
    writeTo(file);
    if (!isGivenUp()) {
        context().target.look(
            file, then<const Attributes&>([this](const auto& now) { lookedAtStanding(now); }));
    }
}

void InPlaceTransfer::lookedAtStanding(const Attributes& now)
{
    now_ = now;
    const bool isSame = context().isOneSystem() && now.identity && source_.identity &&
                        *now.identity == *source_.identity;
    if (now.type && !isRegularFile(*now.type)) {
        giveUp(FailureCode::Changed, entry().target);
    } else if (isSame) {
        giveUp(FailureCode::IntoItself, entry().target, sameFile);
    } else if (context().isOneSystem() && !(now.identity && source_.identity)) {
        checkSource([this] { closeToOthers(); });
    } else {
        closeToOthers();
    }
}

/// Takes from what stands there, before the first byte, what it has beyond the source's permissions
/// if it is to have these. To whom they do not let read, the bytes are not given. Its owner may
/// still have to open it to be written.
void InPlaceTransfer::closeToOthers()
{
    const auto standing = now_.permissions.value_or(Permissions());
    const auto wanted = (sourcePermissions() | PosixFilePermissionFlag::OwnerWrite) & standing;
    if (!context().options.preservesPermissions || !now_.permissions || wanted == standing) {
        cutStanding();
        return;
    }
    Attributes attributes;
    attributes.permissions = wanted;
    context().target.setAttributes(*target(), attributes, whatever<>([this](const Failure& why) {
        if (why) {
            refusedToClose(why);
        } else {
            cutStanding();
        }
    }));
}

void InPlaceTransfer::refusedToClose(const Failure& why)
{
    const auto readers = *now_.permissions & mayRead;
    if (!context().isStrict && (readers & sourcePermissions()) == readers) {
        cutStanding();
        return;
    }
    FailureScope scope("copy", entry().target);
    scope.result(fail(why.code(), why.source(), why.number(),
                      "it cannot be closed to those to whom the source is closed"));
    giveUp(Failure::last());
}

/// What is longer than what is written has its end taken.
void InPlaceTransfer::cutStanding()
{
    if (!now_.size || !source_.size || *now_.size <= *source_.size) {
        beginWriting();
        return;
    }
    Attributes attributes;
    attributes.size = source_.size;
    context().target.setAttributes(*target(), attributes, whatever<>([this](const Failure& why) {
        if (why) {
            emptyStanding();
        } else {
            checkSource([this] { beginWriting(); });
        }
    }));
}

/// Some servers let nobody write a file that is open to be written.
void InPlaceTransfer::emptyStanding()
{
    context().target.close(*target(), whatever<>([this](const Failure&) {
        context().target.open(entry().target, Mode::Write | Mode::Truncate, Permissions(),
                              always<File>([this](const Failure& why, File file) {
                                  if (why) {
                                      giveUp(why);
                                      return;
                                  }
                                  writeTo(file);
                                  if (!isGivenUp()) {
                                      checkSource([this] { beginWriting(); });
                                  }
                              }));
    }));
}

/// Whether what was done has not cut the source, which is the same file then: some servers empty a
/// file that is opened to be written.
void InPlaceTransfer::checkSource(std::function<void()> next)
{
    context().source.look(*source(), then<const Attributes&>([this, next](const auto& now) {
        if (now.size && source_.size && *now.size < *source_.size) {
            giveUp(FailureCode::Changed, entry().path, "it has become shorter");
        } else {
            next();
        }
    }));
}

void InPlaceTransfer::goOnAfterLook()
{
    if (!replacesFile()) {
        FileTransfer::goOnAfterLook();
        return;
    }
    const bool wasCut = source_.size && written() >= *source_.size;
    if (wasCut || written() >= now_.size.value_or(0)) {
        finish();
        return;
    }
    Attributes attributes;
    attributes.size = written();
    context().target.setAttributes(*target(), attributes, then<>([this] { finish(); }));
}

void InPlaceTransfer::finish()
{
    if (context().options.preservesTimes) {
        setTime();
    }
    if (context().options.preservesPermissions) {
        setPermissions();
    }
    closeTemporary();
}

} // namespace FileSystem
