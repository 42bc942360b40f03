#include "tree/FileTransfer.h"

#include "failure/NewFailure.h"
#include "path/PathText.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace FileSystem {

using Mode = StorageSystemFileOpenModeFlag;

namespace {

// Where a copy goes on from what has arrived, less is lost of a piece that has not.
constexpr std::uint64_t resumedPieceSize = 65'536;
// To see whether a file has grown; more where it has.
constexpr std::uint64_t firstProbeSize = 4U << 10U;
// Of one file; together they are bounded by the memory that a copy may take.
constexpr std::size_t mostLargePieces = 224;
constexpr std::size_t mostResumedPieces = 256;
// What a system copies by itself before it can be stopped.
constexpr std::uint64_t copiedPieceSize = 16U << 20U;

constexpr CopyContext::Permissions ownerOnly{0600U};
constexpr CopyContext::Permissions everybodyReads{0044U};

/// Whether not everybody may read what has these.
bool areSecret(CopyContext::Permissions permissions)
{
    return (permissions & everybodyReads) != everybodyReads;
}

/// Whether a system has said that something stands where a file was to be made. A server's refusal
/// need not be for what was found there afterwards.
bool isTaken(const Failure& why)
{
    constexpr std::int64_t fileAlreadyExists = 11; // As later versions of SFTP number it.
    return why.code() == FailureCode::Exists &&
           (why.source() != FailureSource::Server || why.number() == fileAlreadyExists);
}

/// The refusal of a file that has been made: it does not stand in its own way.
Failure notTaken(const Failure& why)
{
    if (why.code() != FailureCode::Exists) {
        return why;
    }
    const std::string path = why.path();
    FailureScope scope("copy", path);
    scope.result(fail(FailureCode::Other, why.source(), why.number(), why.text(), why.entry()));
    return Failure::last();
}

/// With the right to execute for everybody who may read.
CopyContext::Permissions withExecution(CopyContext::Permissions permissions)
{
    constexpr auto reading = 0444U;
    return CopyContext::Permissions(permissions.raw() | (permissions.raw() & reading) >> 2U);
}

} // namespace

FileTransfer::FileTransfer(CopyContext& context, TreeEntry entry, Standing standing, bool mustBeNew)
    : EntryTransfer(context, std::move(entry), std::move(standing), mustBeNew)
    , permissions_(this->entry().attributes.permissions.value_or(Permissions(0666U)))
    , expected_(this->entry().attributes.size.value_or(0))
    , pieceSize_(context.pieceSize)
    , mostPieces_(mostLargePieces)
    , probeSize_(firstProbeSize)
{}

FileTransfer::~FileTransfer() = default;

void FileTransfer::begin()
{
    context().source.openItself(entry().path, Mode::Read,
                                always<File>([this](const Failure& why, File file) {
                                    if (why) {
                                        giveUp(why);
                                    } else {
                                        openedSource(file);
                                    }
                                }));
}

void FileTransfer::openedSource(File file)
{
    sourceFile_ = file;
    if (isGivenUp()) {
        return;
    }
    context().source.look(
        file, then<const Attributes&>([this](const auto& now) { lookedAtSource(now); }));
}

/// One that has been closed to others since it was looked at, or has taken the place of one that
/// was open to them, stays closed to them as a copy.
void FileTransfer::lookedAtSource(const Attributes& now)
{
    if (now.type && !isRegularFile(*now.type)) {
        giveUp(FailureCode::Changed, entry().path);
        return;
    }
    permissions_ = permissions_ & now.permissions.value_or(permissions_);
    // It may have been listed long ago.
    expected_ = now.size.value_or(expected_);
    openTarget(now);
}

void FileTransfer::openTarget(const Attributes& /*source*/)
{
    createTemporary();
}

// For writing alone: where things are only handed in, nothing that is read may be made.
void FileTransfer::createTemporary()
{
    if (!takeTemporaryPath()) {
        giveUp(FailureCode::Exists, temporaryPath());
        return;
    }
    context().target.open(temporaryPath(), Mode::Write | Mode::Create | Mode::Exclusive,
                          permissionsWhileFilled(),
                          always<File>([this](const Failure& why, File file) {
                              if (why && isGivenUp()) {
                                  return;
                              }
                              if (why) {
                                  refusedTemporary(why);
                              } else {
                                  createdTemporary(file);
                              }
                          }));
}

void FileTransfer::refusedTemporary(const Failure& why)
{
    if (isTaken(why)) {
        createTemporary();
    } else if (context().isTargetLocal || temporaryPath() == entry().target) {
        explainRefusal(why);
    } else {
        lookAtRefused(why);
    }
}

/// Some servers make a file and refuse to hand it out then. Nobody else takes a name at random for
/// an empty one. Others do not say that a name is taken.
void FileTransfer::lookAtRefused(const Failure& why)
{
    context().target.lookUp(
        temporaryPath(),
        whatever<const Attributes&>([this, why](const Failure& failure, const auto& made) {
            if (failure) {
                explainRefusal(why);
            } else if (why.source() != FailureSource::Server || made.size != 0 ||
                       (made.type && !isRegularFile(*made.type))) {
                createTemporary();
            } else {
                ownTemporary();
                explainRefusal(notTaken(why));
            }
        }));
}

/// Whether a new file is made under another name first, on a system that may not like such names or
/// their change.
bool FileTransfer::mayHelpToWriteInPlace() const
{
    return !standing() && !context().isTargetLocal;
}

void FileTransfer::explainRefusal(const Failure& why)
{
    if (replacesFile() && why.code() == FailureCode::Denied) {
        giveUpOnlyInPlace(why);
    } else if (mayHelpToWriteInPlace() && why.code() == FailureCode::BadName) {
        giveUpOnlyInPlace(why);
    } else if (mayHelpToWriteInPlace() && why.code() == FailureCode::NotFound) {
        const auto parent = PathText::parentId(entry().target);
        context().target.lookThrough(
            parent.empty() ? "." : parent,
            whatever<const Attributes&>([this, why](const Failure& failure, const auto&) {
                failure ? giveUp(why) : giveUpOnlyInPlace(why);
            }));
    } else {
        giveUp(why);
    }
}

void FileTransfer::refusedName(const Failure& why)
{
    if (mayHelpToWriteInPlace() && isRefusalOfName(why)) {
        giveUpOnlyInPlace(why);
    } else {
        giveUp(why);
    }
}

/// About the target, with what the system said.
void FileTransfer::giveUpOnlyInPlace(const Failure& why)
{
    FailureScope scope("copy", entry().target);
    scope.result(fail(FailureCode::OnlyInPlace, why.source(), why.number(), why.text()));
    giveUp(Failure::last());
}

bool FileTransfer::isSecret() const
{
    const bool replacesSecret =
        replacesFile() && standing()->permissions && areSecret(*standing()->permissions);
    return areSecret(permissions_) || replacesSecret;
}

/// Where the source's are set in the end, they count from then on. If that may fail, a file that
/// others may read is better off with what it can have. The group of what is replaced comes last,
/// and until then the file is in that of whoever makes it.
FileTransfer::Permissions FileTransfer::permissionsWhileFilled() const
{
    if (context().options.preservesPermissions && context().isStrict) {
        return ownerOnly;
    }
    const auto permissions = replacesFile() && standing()->permissions
                                 ? withoutOwnOfGroup(permissions_ & *standing()->permissions)
                                 : permissions_;
    // Some systems take none for none given, and give their own.
    return permissions.isEmpty() ? PosixFilePermissionFlag::OwnerWrite : permissions;
}

/// What may not be read by everybody is closed before the first byte: operations on one file are
/// done in their order. As far as that is possible; where it is not, files have no permissions to
/// speak of. The rest waits for a look, unless the system is seen to keep to what it is asked for.
void FileTransfer::createdTemporary(File file)
{
    temporary_ = file;
    ownTemporary();
    if (isGivenUp()) {
        return;
    }
    context().target.look(file,
                          settling<const Attributes&>([this](const Failure& why, const auto& made) {
                              if (why) {
                                  giveUp(why);
                              } else {
                                  lookedAtTemporary(made);
                              }
                          }));
    if (isSecret() && !context().isTargetLocal) {
        narrowTo(permissionsWhileFilled() & ownerOnly);
    }
    if (!context().isTargetLocal) {
        foreseePermissions();
    }
    if (!context().isTargetLocal && (isSecret() || keepsToPermissions())) {
        beginWriting();
    }
}

/// Where nothing remains to be set of the permissions once the file is made with those that it is
/// asked for with, or all of them are set in the end, it need not be looked at before it is closed.
void FileTransfer::foreseePermissions()
{
    made_ = permissionsWhileFilled();
    now_ = isSecret() ? made_ & ownerOnly : made_;
    arePermissionsKnown_ = context().options.preservesPermissions ||
                           (context().keepsPermissions && finalPermissions() == now_);
}

/// Its path may lead elsewhere by now, and nothing of it can be set any more.
void FileTransfer::checkForeseen()
{
    const bool isWider = !isSecret() && (made_ & permissionsWhileFilled()) != made_;
    const bool isAsForeseen = !isWider && finalPermissions() == now_;
    if (!isAsForeseen && !context().options.preservesPermissions) {
        context().keepsPermissions = false;
        discount(written_);
        repeat(FailureCode::NotKept, temporaryPath());
    }
}

/// Whether the permissions that every new file has had so far are among those of this one.
bool FileTransfer::keepsToPermissions() const
{
    const auto given = context().givenToAll;
    return (given & permissionsWhileFilled()) == given;
}

void FileTransfer::lookedAtTemporary(const Attributes& made)
{
    made_ = made.permissions.value_or(permissionsWhileFilled());
    context().givenToAll = context().givenToAll & made_;
    madeOwner_ = made.owner;
    const bool isClosedAlready = isSecret() && !context().isTargetLocal;
    now_ = isClosedAlready ? permissionsWhileFilled() & ownerOnly : made_;
    if (!temporary_) {
        checkForeseen();
        return;
    }
    arePermissionsKnown_ = true;
    const auto wanted = made_ & permissionsWhileFilled();
    if (!isClosedAlready && wanted != made_) {
        narrowTo(wanted);
        now_ = wanted;
    }
    beginWriting();
}

void FileTransfer::narrowTo(Permissions permissions)
{
    Attributes attributes;
    attributes.permissions = permissions;
    context().target.setAttributes(*temporary_, attributes, settling<>([](const Failure&) {}));
}

void FileTransfer::startAt(std::uint64_t offset, std::uint64_t size)
{
    expected_ = size;
    nextRead_ = nextWrite_ = reached_ = sent_ = written_ = offset;
    end_ = std::numeric_limits<std::uint64_t>::max();
    areBytesOver_ = false;
    canRead_ = true;
    pieceSize_ = std::min(pieceSize_, resumedPieceSize);
    mostPieces_ = mostResumedPieces;
}

void FileTransfer::readFirst(File file, std::uint64_t size)
{
    firstFile_ = file;
    firstSize_ = size;
}

void FileTransfer::hasPermissions(Permissions made, Permissions now) noexcept
{
    made_ = made;
    now_ = now;
}

void FileTransfer::beginWriting()
{
    canWrite_ = true;
    writeInOrder();
    endBytes();
}

bool FileTransfer::wantsToRead() const noexcept
{
    // Where a copy turns out to be none, everything is read from there.
    if (isCopying_) {
        return false;
    }
    if (mayCopyNext()) {
        return sourceFile_ && canRead_ && canWrite_ && !isGivenUp() && writing_ == 0;
    }
    return sourceFile_ && canRead_ && !isGivenUp() &&
           reading_ + writing_ + unwritten_.size() < mostPieces_ && !isProbing_ && nextRead_ < end_;
}

/// Up to the size that is known, and then what may lie beyond it.
void FileTransfer::readNext()
{
    if (mayCopyNext()) {
        copyNext();
        return;
    }
    isProbing_ = nextRead_ >= expected_;
    const bool isFirst = nextRead_ < firstSize_;
    const auto known = (isFirst ? firstSize_ : expected_) - nextRead_;
    const auto size = std::min(pieceSize_, isProbing_ ? probeSize_ : known);
    const Piece piece{newBuffer(context(), size), nextRead_, size};
    nextRead_ += size;
    ++reading_;
    auto& queue = isFirst ? context().target : context().source;
    queue.read(isFirst ? *firstFile_ : *sourceFile_, piece.offset, piece.buffer.get(), size,
               whatever<std::uint64_t>(
                   [this, piece, isProbe = isProbing_](const Failure& why, std::uint64_t got) {
                       --reading_;
                       if (why) {
                           giveUp(why);
                       } else {
                           read(piece, got, isProbe);
                       }
                   }));
}

/// Up to the size that is known. What lies beyond it is read.
bool FileTransfer::mayCopyNext() const noexcept
{
    return context().copiesItself && nextRead_ < expected_ && firstSize_ == 0;
}

void FileTransfer::copyNext()
{
    const auto offset = nextRead_;
    const auto size = std::min(copiedPieceSize, expected_ - offset);
    nextRead_ += size;
    nextWrite_ += size;
    sent_ += size;
    ++writing_;
    isCopying_ = true;
    context().target.copy(
        *sourceFile_, offset, size, *temporary_, offset,
        whatever<>([this, offset, size](const Failure& why) { copied(offset, size, why); }));
}

void FileTransfer::copied(std::uint64_t offset, std::uint64_t size, const Failure& why)
{
    --writing_;
    isCopying_ = false;
    if (why.code() == FailureCode::Unsupported) {
        // It only said that it could.
        context().copiesItself = false;
        nextRead_ = nextWrite_ = sent_ = offset;
        return;
    }
    if (why) {
        giveUp(why);
        return;
    }
    reached_ = std::max(reached_, sent_);
    written_ += size;
    count(size);
    context().written(entry());
    endBytes();
    endTemporary();
}

void FileTransfer::read(const Piece& piece, std::uint64_t got, bool isProbe)
{
    if (isProbe) {
        isProbing_ = false;
        // Each costs a round trip: what somebody goes on writing to would never be met at its end.
        probeSize_ = std::min(2 * probeSize_, pieceSize_);
    }
    if (got < piece.size && piece.offset < firstSize_) {
        giveUp(FailureCode::Changed, entry().target, "it was cut meanwhile");
        return;
    }
    if (got < piece.size) {
        end_ = std::min(end_, piece.offset + got);
    }
    reached_ = std::max(reached_, got != 0 ? piece.offset + got : 0);
    if (reached_ > end_) {
        giveUp(FailureCode::Changed, entry().path, "it was cut and written to meanwhile");
        return;
    }
    if (got != 0) {
        take({piece.buffer, piece.offset, got});
    }
    endBytes();
}

/// Some systems take the bytes of a file in their order alone, and what a connection that is lost
/// leaves then has no hole.
void FileTransfer::take(const Piece& piece)
{
    unwritten_.emplace(piece.offset, piece);
    if (canWrite_) {
        writeInOrder();
    }
}

void FileTransfer::writeInOrder()
{
    while (!unwritten_.empty() && unwritten_.begin()->first == nextWrite_) {
        const Piece piece = unwritten_.begin()->second;
        unwritten_.erase(unwritten_.begin());
        nextWrite_ += piece.size;
        write(piece);
    }
}

void FileTransfer::write(const Piece& piece)
{
    ++writing_;
    sent_ += piece.size;
    context().target.write(*temporary_, piece.offset, piece.buffer.get(), piece.size,
                           whatever<>([this, piece](const Failure& why) {
                               --writing_;
                               if (why) {
                                   giveUp(why);
                                   return;
                               }
                               written_ += piece.size;
                               count(piece.size);
                               context().written(entry());
                               endBytes();
                               endTemporary();
                           }));
}

bool FileTransfer::areBytesOver() const noexcept
{
    return canWrite_ && reading_ == 0 && unwritten_.empty() &&
           end_ != std::numeric_limits<std::uint64_t>::max() && nextRead_ >= end_ &&
           (writing_ == 0 || mayCloseBehindWrites());
}

/// Operations on one file are done in their order. What is to be replaced is looked at once more
/// when everything is written.
bool FileTransfer::mayCloseBehindWrites() const noexcept
{
    return arePermissionsKnown_ && !context().copiesItself && !standing() &&
           !context().isTargetLocal && temporaryPath() != entry().target;
}

void FileTransfer::endBytes()
{
    if (areBytesOver() && !areBytesOver_) {
        areBytesOver_ = true;
        checkEnd();
    }
}

/// An end that came before the known one is that of a file that has been cut since, or of an answer
/// that was not true. This machine's own files end where they end: some have sizes that mean
/// nothing.
void FileTransfer::checkEnd()
{
    if (sent_ >= entry().attributes.size.value_or(0) || context().isSourceLocal) {
        wroteAll();
        return;
    }
    context().source.look(*sourceFile_, then<const Attributes&>([this](const auto& now) {
        if (now.size && *now.size != sent_) {
            giveUp(FailureCode::Changed, entry().path, "it ended before its size");
        } else {
            wroteAll();
        }
    }));
}

void FileTransfer::closeSource()
{
    context().source.close(*std::exchange(sourceFile_, std::nullopt),
                           whatever<>([](const Failure&) {}));
    lookAgain();
}

void FileTransfer::goOnAfterLook()
{
    if (replacesFile() && standsStill() && standing()->owner) {
        takeOwner();
    } else {
        setFinal();
    }
}

/// Gives the file the owner of what it is to replace: the one that was there before the first byte,
/// since whoever may write to the directory could put a file of his own there meanwhile. Where that
/// is not allowed, its group.
void FileTransfer::takeOwner()
{
    const auto owner = *standing()->owner;
    if (madeOwner_ == owner) {
        hasItsGroup_ = true;
        setFinal();
        return;
    }
    Attributes attributes;
    attributes.owner = owner;
    context().target.setAttributes(
        *temporary_, attributes, whatever<>([this, owner](const Failure& why) {
            if (!why || !madeOwner_) {
                hasItsGroup_ = !why;
                setFinal();
                return;
            }
            Attributes group;
            group.owner = StorageSystemOwner{madeOwner_->user, owner.group};
            context().target.setAttributes(*temporary_, group,
                                           whatever<>([this](const Failure& refused) {
                                               hasItsGroup_ = !refused;
                                               setFinal();
                                           }));
        }));
}

FileTransfer::Permissions FileTransfer::finalPermissions() const
{
    if (context().options.preservesPermissions) {
        return permissions_;
    }
    if (replacesFile() && standing()->permissions) {
        const auto its = *standing()->permissions;
        return hasItsGroup_ ? its : withoutOwnOfGroup(its);
    }
    // The source's less the umask, where the system looked at them.
    constexpr auto execution = PosixFilePermissionFlag::OwnerExecute;
    const bool wasLookedAt =
        context().isTargetLocal || made_.has(execution) || !permissions_.has(execution);
    return permissions_ & (wasLookedAt ? made_ : withExecution(made_));
}

// The time first: a file that nobody may write may refuse it.
void FileTransfer::setFinal()
{
    if (context().options.preservesTimes && entry().attributes.modTime) {
        setTime();
    }
    if (finalPermissions() != now_ || context().options.preservesPermissions) {
        setPermissions();
    }
    closeTemporary();
}

void FileTransfer::setTime()
{
    Attributes attributes;
    attributes.modTime = entry().attributes.modTime;
    // A system that writes when a file is closed is asked again.
    context().target.setAttributes(*temporary_, attributes, settling<>([](const Failure&) {}));
}

void FileTransfer::setPermissions()
{
    Attributes attributes;
    attributes.permissions = finalPermissions();
    context().target.setAttributes(*temporary_, attributes, settling<>([this](const Failure& why) {
        // As far as the system has permissions at all.
        if (context().options.preservesPermissions) {
            keepOrLose(why, "the permissions");
        }
    }));
}

void FileTransfer::keepOrLose(const Failure& why, const char* what)
{
    if (why && context().isStrict) {
        giveUp(why);
    } else if (why) {
        lose(newFailure("copy", entry().target, FailureCode::NotKept,
                        std::string(what) + ": " + why.cause()));
    }
}

void FileTransfer::closeTemporary()
{
    const bool needsName = temporaryPath() != entry().target && !standing();
    context().target.closeAndLook(
        *std::exchange(temporary_, std::nullopt), temporaryPath(),
        needsName ? entry().target : std::string(),
        settling<const Attributes&, bool>(
            [this](const Failure& why, const auto& now, bool isTargetFree) {
                if (why) {
                    giveUp(why);
                } else {
                    closed_ = now;
                    noteTargetFree(isTargetFree);
                }
            }));
}

/// Goes on when everything that was asked of the file has been answered.
void FileTransfer::endTemporary()
{
    if (closed_ && unsettled_ == 0 && writing_ == 0 && !isGivenUp()) {
        checkWritten(*std::exchange(closed_, std::nullopt));
    }
}

/// What a system could not keep after all shows when the file is closed. Others may have put a link
/// of just that size there, which would be published.
void FileTransfer::checkWritten(const Attributes& now)
{
    if (!isAsWritten(now)) {
        doubt(now);
    } else if (keepsTime(now)) {
        publish();
    } else {
        noteTargetFree(false);
        Attributes attributes;
        attributes.modTime = entry().attributes.modTime;
        context().target.setAttributes(temporaryPath(), attributes,
                                       whatever<>([this](const Failure& why) {
                                           keepOrLose(why, "the modification time");
                                           if (!isGivenUp()) {
                                               publish();
                                           }
                                       }));
    }
}

bool FileTransfer::isAsWritten(const Attributes& now) const
{
    return (!now.type || isRegularFile(*now.type)) && now.size.value_or(0) == written_;
}

/// What was asked for behind the closing may have been answered too early.
void FileTransfer::doubt(const Attributes& now)
{
    if (!std::exchange(isDoubted_, true)) {
        noteTargetFree(false);
        context().target.lookUp(temporaryPath(), then<const Attributes&>([this](const auto& again) {
                                    checkWritten(again);
                                }));
    } else if (now.type && !isRegularFile(*now.type)) {
        giveUp(FailureCode::Changed, temporaryPath(), "it is no longer the file that was written");
    } else {
        giveUp(FailureCode::Changed, temporaryPath(), "it has not the size of what was written");
    }
}

bool FileTransfer::keepsTime(const Attributes& now) const
{
    using std::chrono::floor;
    using std::chrono::seconds;
    const auto& wanted = entry().attributes.modTime;
    return !context().options.preservesTimes || !wanted ||
           (now.modTime && floor<seconds>(*wanted) == floor<seconds>(*now.modTime));
}

void FileTransfer::closeAll()
{
    if (firstFile_) {
        context().target.close(*std::exchange(firstFile_, std::nullopt),
                               whatever<>([](const Failure&) {}));
    }
    if (sourceFile_) {
        context().source.close(*std::exchange(sourceFile_, std::nullopt),
                               whatever<>([](const Failure&) {}));
    }
    if (temporary_) {
        context().target.close(*std::exchange(temporary_, std::nullopt),
                               whatever<>([](const Failure&) {}));
    }
}

} // namespace FileSystem
