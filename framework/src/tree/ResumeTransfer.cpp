#include "tree/ResumeTransfer.h"

#include "failure/NewFailure.h"
#include "local/LocalCalls.h"
#include "path/PathText.h"
#include "tree/CopyClaims.h"
#include "tree/FileComparison.h"
#include "tree/HiddenName.h"

#include <limits>
#include <utility>

namespace FileSystem {

using Mode = StorageSystemFileOpenModeFlag;

namespace {

// More than any source has in earnest.
constexpr int mostParts = 10;

constexpr CopyContext::Permissions ownerOnly{0600U};
constexpr const char* changedMeanwhile = "the file changed while it was copied";

} // namespace

ResumeTransfer::ResumeTransfer(CopyContext& context, TreeEntry entry, Standing standing,
                               bool mustBeNew, IsTaken isTaken)
    : FileTransfer(context, std::move(entry), std::move(standing), mustBeNew)
    , isTaken_(std::move(isTaken))
{
    holdReading();
}

ResumeTransfer::~ResumeTransfer()
{
    context().parts.erase(claim_);
}

void ResumeTransfer::openTarget(const Attributes& source)
{
    size_ = source.size.value_or(0);
    if (replacesFile()) {
        replaced_ = standing()->permissions;
    }
    if (size_ == 0) {
        lookForContents();
    } else {
        choosePart();
    }
}

/// Some files are told to be empty and have something in them, as those of /proc: of what has no
/// size nobody knows how far a copy has come.
void ResumeTransfer::lookForContents()
{
    auto first = newBuffer(context(), 1);
    auto* const byte = first.get();
    context().source.read(*source(), 0, byte, 1,
                          then<std::uint64_t>([this, first](std::uint64_t got) {
                              isPlain_ = got != 0;
                              if (isPlain_) {
                                  startAt(0, 0);
                                  FileTransfer::openTarget({});
                              } else {
                                  choosePart();
                              }
                          }));
}

void ResumeTransfer::choosePart()
{
    part_.clear();
    there_.reset();
    context().parts.erase(std::exchange(claim_, {}));
    if (++number_ > mostParts) {
        giveUp(FailureCode::Exists, entry().target, "all names for what is copied are taken");
        return;
    }
    part_ =
        PathText::sibling(entry().target, partName(PathText::fileName(entry().target), number_));
    if (isTaken_(part_) || !claimPart()) {
        choosePart();
        return;
    }
    context().target.lookUp(
        part_, whatever<const Attributes&>(
                   [this](const Failure& failure, const auto& now) { lookAtPart(failure, now); }));
}

/// Two that go on in one file would not notice.
bool ResumeTransfer::claimPart()
{
    auto folded = withSmallLetters(part_);
    const bool isOurs = context().parts.insert(folded).second;
    if (isOurs) {
        claim_ = std::move(folded);
    }
    return isOurs;
}

void ResumeTransfer::lookAtPart(const Failure& failure, const Attributes& now)
{
    if (!failure) {
        there_ = now;
    }
    // In a directory that this copy has made, it is another file's of this copy.
    if (isOfSomebodyElse() || (there_ && mustBeNew())) {
        choosePart();
    } else if (entry().below.empty()) {
        lookForNeighbour();
    } else {
        takePart();
    }
}

/// Whether it is seen that the part was not made here: whoever made it could read what is put into
/// it. Another system does not tell as whom we act there.
bool ResumeTransfer::isOfSomebodyElse() const
{
    return context().isTargetLocal && there_ && there_->type && isRegularFile(*there_->type) &&
           !LocalCalls::isOwnFile(part_);
}

/// What stands beside the source under the part's name may have been copied, or be copied later. A
/// copy of it has its size; what has another may be a part that was there before.
void ResumeTransfer::lookForNeighbour()
{
    context().source.lookUp(
        PathText::sibling(entry().path, PathText::fileName(part_)),
        whatever<const Attributes&>([this](const Failure& failure, const auto& neighbour) {
            if (failure) {
                takePart();
            } else if (there_ && there_->size != neighbour.size && mayBeBeginning(there_, 1)) {
                compareDoubtful();
            } else {
                choosePart();
            }
        }));
}

bool ResumeTransfer::mayBeBeginning(const std::optional<Attributes>& there,
                                    std::uint64_t smallest) const
{
    return there && there->type && isRegularFile(*there->type) && there->size &&
           *there->size >= smallest && *there->size <= size_;
}

void ResumeTransfer::compareDoubtful()
{
    compareWithSource(part_, *there_->size, [this](const Failure& failure, bool areSame) {
        if (failure || !areSame) {
            choosePart();
            return;
        }
        isCompared_ = true;
        takePart();
    });
}

void ResumeTransfer::takePart()
{
    useTemporaryPath(part_);
    compareTarget();
}

void ResumeTransfer::compareTarget()
{
    if (!mayBeBeginning(standing(), size_)) {
        findStart();
        return;
    }
    compareWithSource(entry().target, size_, [this](const Failure& failure, bool areSame) {
        if (failure) {
            giveUp(failure);
        } else if (areSame) {
            isWhole();
        } else {
            isTargetOther_ = true;
            findStart();
        }
    });
}

/// What is the same stays known by its ends.
void ResumeTransfer::compareWithSource(const std::string& path, std::uint64_t size, Compared done)
{
    context().target.openItself(
        path, Mode::Read,
        always<File>([this, size, done = std::move(done)](const Failure& failure, File file) {
            if (!failure) {
                compared_ = file;
            }
            if (isGivenUp()) {
                return;
            }
            if (failure) {
                done(failure, false);
            } else {
                compareOpen(file, size, done);
            }
        }));
}

void ResumeTransfer::compareOpen(File file, std::uint64_t size, const Compared& done)
{
    std::make_shared<FileComparison>(context(), *source(), file, size)
        ->start(whatever<bool>([this, size, done](const Failure& failure, bool areSame) {
            if (!failure && areSame) {
                keepBeginning(size, done);
                return;
            }
            context().target.close(*std::exchange(compared_, std::nullopt),
                                   whatever<>([](const Failure&) {}));
            done(failure, false);
        }));
}

void ResumeTransfer::keepBeginning(std::uint64_t size, const Compared& done)
{
    readEnds(context().target, *compared_, size,
             whatever<const std::string&>(
                 [this, size, done](const Failure& failure, const std::string& ends) {
                     context().target.close(*std::exchange(compared_, std::nullopt),
                                            whatever<>([](const Failure&) {}));
                     if (!failure) {
                         beginning_ = Beginning{size, ends};
                     }
                     done(failure, !failure);
                 }));
}

/// It gets what it is to keep all the same.
void ResumeTransfer::isWhole()
{
    skip();
    // The time first: a file that nobody may write may refuse it.
    if (context().options.preservesTimes && entry().attributes.modTime) {
        Attributes time;
        time.modTime = entry().attributes.modTime;
        setAttribute(time, "the modification time");
    }
    if (context().options.preservesPermissions) {
        Attributes permissions;
        permissions.permissions = sourcePermissions();
        setAttribute(permissions, "the permissions");
    }
    closeAll();
}

void ResumeTransfer::setAttribute(const Attributes& attributes, const char* what)
{
    context().target.setAttributes(
        entry().target, attributes,
        whatever<>([this, what](const Failure& failure) { keepOrLose(failure, what); }));
}

void ResumeTransfer::findStart()
{
    if (there_ && !(there_->type && isRegularFile(*there_->type))) {
        isUnusable_ = true;
        giveUp(FailureCode::Exists, entry().target, "something that is no file stands at " + part_);
    } else if (isCompared_) {
        makeReachable();
    } else if (there_ ? mayBeBeginning(there_, 1)
                      : !isTargetOther_ && mayBeBeginning(standing(), 1)) {
        compareBeginning();
    } else {
        beginAnew();
    }
}

void ResumeTransfer::compareBeginning()
{
    const auto& size = there_ ? there_->size : standing()->size;
    compareWithSource(there_ ? part_ : entry().target, *size,
                      [this](const Failure& failure, bool areSame) {
                          if (failure) {
                              giveUp(failure);
                          } else if (!areSame) {
                              beginAnew();
                          } else if (there_) {
                              makeReachable();
                          } else if (context().isTargetLocal) {
                              beginWithStanding();
                          } else {
                              renameStanding();
                          }
                      });
}

/// So that it stays until all is there.
void ResumeTransfer::beginWithStanding()
{
    context().target.openItself(entry().target, Mode::Read,
                                always<File>([this](const Failure& failure, File file) {
                                    if (failure) {
                                        giveUp(failure);
                                        return;
                                    }
                                    readFirst(file, beginning_->size);
                                    if (!isGivenUp()) {
                                        beginAnew();
                                    }
                                }));
}

void ResumeTransfer::renameStanding()
{
    context().kept(entry(), part_, TreePart::Taking);
    rename(entry().target, part_, [this](const Failure& failure) {
        if (failure) {
            giveUp(failure);
            return;
        }
        standingAt_ = StandingAt::Part;
        if (isGivenUp()) {
            return;
        }
        // It may be another one by now.
        context().target.lookUp(
            part_, then<const Attributes&>([this](const auto& now) { takeRenamed(now); }));
    });
}

void ResumeTransfer::takeRenamed(const Attributes& now)
{
    replaced_ = now.permissions;
    there_ = now;
    if (now.size != beginning_->size) {
        giveUp(FailureCode::Changed, entry().target, "it was written to meanwhile");
    } else {
        makeReachable();
    }
}

/// A part may have been left as a file is that its own owner may not write.
void ResumeTransfer::makeReachable()
{
    const auto has = there_->permissions;
    if (!has || (*has & ownerOnly) == ownerOnly) {
        openPart();
        return;
    }
    Attributes attributes;
    attributes.permissions = (*has & permissionsOfPart()) | ownerOnly;
    context().target.setAttributes(part_, attributes,
                                   whatever<>([this](const Failure&) { openPart(); }));
}

/// For reading as well: some servers empty only what is opened to be written and nothing else.
void ResumeTransfer::openPart()
{
    mayBeWritten_ = true;
    context().target.openItself(part_, Mode::Read | Mode::Write,
                                always<File>([this](const Failure& failure, File file) {
                                    if (failure) {
                                        giveUp(failure);
                                        return;
                                    }
                                    writeTo(file);
                                    if (!isGivenUp()) {
                                        openedPart();
                                    }
                                }));
}

/// In a directory that others may write to, theirs may have come since it was chosen.
void ResumeTransfer::openedPart()
{
    if (isOfSomebodyElse()) {
        isUnusable_ = true;
        giveUp(FailureCode::Denied, part_, part_ + " is somebody else's");
        return;
    }
    context().target.look(
        *target(), then<const Attributes&>([this](const auto& now) { lookedAtOpenPart(now); }));
}

void ResumeTransfer::lookedAtOpenPart(const Attributes& now)
{
    partOwner_ = now.owner;
    hide(now, [this, now] {
        const bool isEmptied = now.size && *now.size != beginning_->size;
        fillFrom(isEmptied ? 0 : beginning_->size);
    });
}

/// Always in a file of its own: what stands there may be open to somebody, or be his.
void ResumeTransfer::beginAnew()
{
    isPartNew_ = true;
    if (!there_) {
        createPart();
        return;
    }
    context().target.removeFile(part_, then<>([this] { createPart(); }));
}

void ResumeTransfer::createPart()
{
    context().target.open(part_, Mode::Write | Mode::Create | Mode::Exclusive, permissionsOfPart(),
                          always<File>([this](const Failure& failure, File file) {
                              if (failure) {
                                  giveUp(failure);
                                  return;
                              }
                              writeTo(file);
                              there_ = Attributes();
                              if (!isGivenUp()) {
                                  createdPart();
                              }
                          }));
}

/// A system may write a file that was made through one handle by several: what an interruption
/// leaves of it would have holes. One that was there is written in order.
void ResumeTransfer::createdPart()
{
    constexpr std::uint64_t enough = 1U << 20U;
    if (context().isTargetLocal || size_ < enough) {
        lookAtNewPart();
        return;
    }
    context().target.look(*target(), then<const Attributes&>([this](const auto& made) {
        partOwner_ = made.owner;
        context().target.close(*target(), whatever<>([this](const Failure&) { reopenPart(); }));
    }));
}

void ResumeTransfer::reopenPart()
{
    context().target.openItself(
        part_, Mode::Write, always<File>([this](const Failure& failure, File file) {
            if (failure) {
                giveUp(failure);
                return;
            }
            writeTo(file);
            if (!isGivenUp()) {
                context().target.look(
                    file, then<const Attributes&>([this](const auto& now) { reopenedPart(now); }));
            }
        }));
}

/// Somebody may have put a file or a link of his own there.
void ResumeTransfer::reopenedPart(const Attributes& now)
{
    const bool isFile = !now.type || isRegularFile(*now.type);
    const bool isItsOwner = !partOwner_ || (now.owner && *now.owner == *partOwner_);
    if (isFile && isItsOwner && now.size.value_or(0) == 0) {
        madePart(now);
    } else {
        isUnusable_ = true;
        giveUp(FailureCode::Changed, part_, part_ + " is another file than was made");
    }
}

void ResumeTransfer::lookAtNewPart()
{
    context().target.look(*target(),
                          then<const Attributes&>([this](const auto& now) { madePart(now); }));
}

/// A system that lets nobody set permissions has made it as it makes everything.
void ResumeTransfer::madePart(const Attributes& now)
{
    partOwner_ = now.owner;
    const auto given = now.permissions.value_or(permissionsOfPart());
    closePart(given, [this, given](const Failure& /*failure*/, Permissions closed) {
        hasPermissions(given, closed);
        fillFrom(0);
    });
}

/// An earlier copy may have had other permissions. Where what the part has beyond those of this one
/// is not ours to take away, it gets no byte. A file of our own that cannot be closed is on a
/// volume without permissions.
void ResumeTransfer::hide(const Attributes& now, std::function<void()> next)
{
    const auto has = now.permissions.value_or(permissionsOfPart());
    closePart(has, [this, has, next = std::move(next)](const Failure& why, Permissions closed) {
        const bool isOpen = (has & closed) != has;
        if (isOpen && !context().isTargetLocal && why.code() == FailureCode::Denied) {
            isUnusable_ = true;
            giveUp(FailureCode::Denied, part_, part_ + " is open to others and cannot be closed");
            return;
        }
        hasPermissions(closed, closed);
        next();
    });
}

/// Takes away what the part has beyond what it may.
/// \param then is given what it may have, and why it has more, where it has.
void ResumeTransfer::closePart(Permissions has, Closed then)
{
    const auto wanted = (has & permissionsOfPart()) | ownerOnly;
    if (has == wanted) {
        then({}, wanted);
        return;
    }
    Attributes attributes;
    attributes.permissions = wanted;
    context().target.setAttributes(
        *target(), attributes,
        whatever<>([then = std::move(then), wanted](const Failure& why) { then(why, wanted); }));
}

/// Never open to more people than the source and the file that it becomes, also where an
/// interruption leaves it for long; and to its owner, who is to go on. What the group of that file
/// may is not for the group of a new one.
ResumeTransfer::Permissions ResumeTransfer::permissionsOfPart() const
{
    const auto source = sourcePermissions();
    return ownerOnly | (replaced_ ? source & withoutOwnOfGroup(*replaced_) : source);
}

void ResumeTransfer::fillFrom(std::uint64_t offset)
{
    discount(counted_);
    count(offset);
    counted_ = offset;
    startAt(offset, size_);
    beginWriting();
}

void ResumeTransfer::wroteAll()
{
    if (isPlain_) {
        closeSource();
    } else if (written() != size_) {
        giveUp(FailureCode::Changed, entry().path, changedMeanwhile);
    } else if (isPartNew_ || isChecked_) {
        closeSource();
    } else {
        checkBeginning();
    }
}

/// A system may lose what the part held when the first byte is written.
void ResumeTransfer::checkBeginning()
{
    isChecked_ = true;
    readEnds(context().target, *target(), beginning_->size,
             then<const std::string&>([this](const std::string& copied) {
                 readEnds(context().source, *source(), beginning_->size,
                          then<const std::string&>([this, copied](const std::string& wanted) {
                              checkEnds(copied, wanted);
                          }));
             }));
}

/// Where the source has become another, to begin anew would drop what the part still holds.
void ResumeTransfer::checkEnds(const std::string& copied, const std::string& wanted)
{
    if (copied == wanted) {
        closeSource();
    } else if (copied == beginning_->ends) {
        giveUp(FailureCode::Changed, entry().path, changedMeanwhile);
    } else {
        discount(size_ - counted_);
        context().target.close(*target(), whatever<>([this](const Failure&) { beginAnew(); }));
    }
}

void ResumeTransfer::goOnAfterLook()
{
    if (isPlain_) {
        FileTransfer::goOnAfterLook();
    } else {
        setFinal();
    }
}

FileTransfer::Permissions ResumeTransfer::finalPermissions() const
{
    if (isPlain_ || context().options.preservesPermissions || !replaced_) {
        return FileTransfer::finalPermissions();
    }
    return permissionsOfReplaced();
}

/// Those of the file that stood at the target; of its group's own only where the part is in that
/// group.
ResumeTransfer::Permissions ResumeTransfer::permissionsOfReplaced() const
{
    const bool isItself = standingAt_ == StandingAt::Part && !isPartNew_;
    const bool isInItsGroup = standing() && standing()->owner && partOwner_ &&
                              standing()->owner->group == partOwner_->group;
    return isItself || isInItsGroup ? *replaced_ : withoutOwnOfGroup(*replaced_);
}

void ResumeTransfer::refusedName(const Failure& why)
{
    if (isPlain_) {
        FileTransfer::refusedName(why);
    } else if (mustBeNew()) {
        refusedNewName(why);
    } else {
        giveUp(why);
    }
}

/// Where another file of this copy has the name, no later copy goes on from the part.
void ResumeTransfer::refusedNewName(const Failure& why)
{
    context().target.lookUp(entry().target, whatever<const Attributes&>(
                                                [this, why](const Failure& failure, const auto&) {
                                                    if (!failure) {
                                                        ownTemporary();
                                                    }
                                                    giveUp(why);
                                                }));
}

void ResumeTransfer::closeAll()
{
    FileTransfer::closeAll();
    if (compared_) {
        context().target.close(*std::exchange(compared_, std::nullopt),
                               whatever<>([](const Failure&) {}));
    }
}

void ResumeTransfer::leave()
{
    if (isPlain_ || part_.empty()) {
        return;
    }
    if (standingAt_ == StandingAt::Part) {
        giveBack();
    } else if (!isUnusable_) {
        context().target.lookUp(
            part_, whatever<const Attributes&>([this](const Failure& failure, const auto&) {
                if (!failure) {
                    context().kept(entry(), part_, TreePart::Copied);
                }
            }));
    }
}

/// What was renamed gets its name and its permissions back, with what has been put behind it. What
/// a system has emptied does not: under its own name nobody would see that it is not whole.
void ResumeTransfer::giveBack()
{
    context().target.lookUp(
        part_, whatever<const Attributes&>([this](const Failure& failure, const auto& now) {
            giveBackIfThere(failure, now);
        }));
}

void ResumeTransfer::giveBackIfThere(const Failure& failure, const Attributes& now)
{
    if (failure.code() == FailureCode::NotFound) {
        // It took the target's name after all, or somebody has removed it.
        return;
    }
    if (failure) {
        tellKept();
        return;
    }
    if (!mayBeWritten_) {
        // It may be another one than was compared, and is as it was.
        restore(now);
        return;
    }
    context().target.openItself(part_, Mode::Read,
                                whatever<File>([this, now](const Failure& why, File file) {
                                    if (why) {
                                        tellKept();
                                    } else {
                                        checkLeft(file, now);
                                    }
                                }));
}

/// Whether the part still has what it held before it was written to.
void ResumeTransfer::checkLeft(File file, const Attributes& now)
{
    readEnds(context().target, file, beginning_->size,
             whatever<const std::string&>(
                 [this, file, now](const Failure& failure, const std::string& ends) {
                     context().target.close(file, whatever<>([](const Failure&) {}));
                     if (failure) {
                         tellKept();
                     } else if (ends != beginning_->ends) {
                         standingAt_ = StandingAt::Nowhere;
                         tellKept();
                     } else {
                         restore(now);
                     }
                 }));
}

void ResumeTransfer::restore(const Attributes& now)
{
    const auto wanted =
        replaced_ ? std::optional(permissionsOfReturned(now.size.value_or(0))) : now.permissions;
    if (wanted == now.permissions) {
        returnToTarget();
        return;
    }
    Attributes attributes;
    attributes.permissions = wanted;
    context().target.setAttributes(part_, attributes,
                                   whatever<>([this](const Failure&) { returnToTarget(); }));
}

/// Where the file was to have the source's permissions, it stays closed to those to whom the source
/// is, once a byte of the source has come behind what stood there.
ResumeTransfer::Permissions ResumeTransfer::permissionsOfReturned(std::uint64_t size) const
{
    const bool isGrown = mayBeWritten_ && size != beginning_->size;
    return isGrown && context().options.preservesPermissions ? permissionsOfPart() : *replaced_;
}

/// Something that has come to the target meanwhile stays.
void ResumeTransfer::returnToTarget()
{
    context().target.rename(part_, entry().target, whatever<>([this](const Failure& failure) {
                                if (!failure) {
                                    standingAt_ = StandingAt::TargetAgain;
                                }
                                tellKept();
                            }));
}

void ResumeTransfer::tellKept()
{
    const bool isReturned = standingAt_ == StandingAt::TargetAgain;
    if (isReturned && isUnusable_) {
        return;
    }
    const auto part = isReturned                           ? TreePart::Returned
                      : standingAt_ == StandingAt::Nowhere ? TreePart::Emptied
                                                           : TreePart::Standing;
    context().kept(entry(), isReturned ? entry().target : part_, part);
}

} // namespace FileSystem
