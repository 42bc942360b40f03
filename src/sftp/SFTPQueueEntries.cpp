#include "sftp/SFTPAttributes.h"
#include "sftp/SFTPQueueAttributes.h"
#include "sftp/SFTPQueueCall.h"

#include <algorithm>
#include <utility>

namespace Tarnis {

using FileSystem::FailureCode;
using FileSystem::StorageSystemStorageInfo;

namespace {

std::optional<std::string> linkTextIn(const SFTPAnswer& answer)
{
    const auto names = !answer.isLost && answer.type == SFTPPacketType::Name
                           ? decodeNames(answer.fields)
                           : std::nullopt;
    return names && names->size() == 1 ? std::make_optional(std::string(names->front().name))
                                       : std::nullopt;
}

std::string withoutTrailingSlash(const std::string& path)
{
    const auto last = path.find_last_not_of('/');
    return last == std::string::npos ? path.substr(0, 1) : path.substr(0, last + 1);
}

bool isOtherThanDirectory(std::optional<std::uint32_t> kind)
{
    return kind && *kind != 0 && *kind != directoryKind;
}

} // namespace

std::optional<FailureCode> SFTPQueue::reasonIf(bool applies, FailureCode reason)
{
    return applies ? std::make_optional(reason) : std::nullopt;
}

/// \param then the attributes, or the answer that has none.
void SFTPQueue::askAttributes(
    const std::string& path,
    std::function<void(const std::optional<SFTPFileAttributes>&, const Answer&)> then)
{
    ask([path](SFTPPacketWriter& writer, std::uint32_t id) { writer.lstat(id, path); },
        [this, path, then = std::move(then)](const Answer& answer) {
            const auto told = attributesIn(answer);
            if (!told || !mayBeFollowed(*told, tellsLinks_)) {
                then(told, answer);
                return;
            }
            withLinkSeen(path, *told,
                         [answer, then](const SFTPFileAttributes& seen) { then(seen, answer); });
        });
}

/// Whether what the server has told may be of a link's target. Of mod_sftp that is known. Others
/// are trusted with files, but not with directories, which are entered: not before they have told a
/// link.
bool SFTPQueue::mayBeFollowed(const SFTPFileAttributes& told, bool& tellsLinks) const
{
    const std::uint32_t mode = told.permissions.value_or(0);
    if (isLinkMode(mode)) {
        tellsLinks = true;
        return false;
    }
    return server_ == SFTPServerKind::ModSftp ||
           ((mode & kindBits) == directoryKind && !tellsLinks && !isKnownToRefuse_);
}

void SFTPQueue::withLinkSeen(const std::string& path, const SFTPFileAttributes& told,
                             std::function<void(const SFTPFileAttributes&)> then)
{
    // A readlink that succeeds shows that the entry is a link.
    ask([path](SFTPPacketWriter& writer, std::uint32_t id) { writer.readlink(id, path); },
        [path, told, then = std::move(then)](const Answer& text) {
            SFTPFileAttributes attributes = told;
            const auto target = linkTextIn(text);
            // Some servers answer for whatever stands there, with its own path.
            if (target && *target != path) {
                attributes.permissions = linkKind | 0777U;
                attributes.size = target->size();
            }
            then(attributes);
        });
}

void SFTPQueue::askKind(const std::string& path,
                        std::function<void(std::optional<std::uint32_t>)> then)
{
    askAttributes(path, [then = std::move(then)](const auto& told, const Answer& /*answer*/) {
        then(told ? std::make_optional(told->permissions.value_or(0) & kindBits) : std::nullopt);
    });
}

template <class... Results>
void SFTPQueue::explain(const std::shared_ptr<Call<Results...>>& call, const Answer& answer,
                        const std::string& path, Reason reason, std::function<void()> tryAgain)
{
    const auto status = Call<>::statusOf(answer);
    // Servers use these statuses for failures that the protocol has no status for.
    const bool isVague = status && (status->code == SFTPStatusCode::Failure ||
                                    status->code == SFTPStatusCode::BadMessage ||
                                    status->code == SFTPStatusCode::OperationUnsupported);
    if (!isVague) {
        call->failFor(answer);
        return;
    }
    // Asked now, since the others may be closed when the answer below comes.
    const bool wereOthersOpen = opened_ > 0;
    askKind(path, [this, call, answer, wereOthersOpen, reason = std::move(reason),
                   tryAgain = std::move(tryAgain)](std::optional<std::uint32_t> kind) {
        const auto known = reason(kind);
        const auto giveUp = [call, answer, known] {
            call->failFor(answer, {}, SFTPSubject::Path, known);
        };
        if (known || tryAgain == nullptr || !wereOthersOpen) {
            giveUp();
        } else {
            parked_.push_back({tryAgain, giveUp});
        }
    });
}

template void SFTPQueue::explain(const std::shared_ptr<Call<File>>&, const Answer&,
                                 const std::string&, Reason, std::function<void()>);
template void SFTPQueue::explain(const std::shared_ptr<Call<>>&, const Answer&, const std::string&,
                                 Reason, std::function<void()>);

void SFTPQueue::endByAttributes(Call<const Attributes&>& call, const Answer& answer,
                                SFTPSubject subject)
{
    const auto told = attributesIn(answer);
    if (told) {
        call.succeed(attributesOf(*told));
    } else {
        call.failFor(answer, {}, subject);
    }
}

/// Ends an operation that has set attributes: some servers say that they did, and did not.
void SFTPQueue::endBySetting(Call<>& call, const std::optional<Answer>& refusal,
                             const Answer& readBack, const Attributes& wanted, SFTPSubject subject)
{
    const auto told = attributesIn(readBack);
    if (refusal) {
        call.failFor(*refusal, {}, subject);
    } else if (readBack.isLost) {
        call.failFor(readBack, {}, subject);
    } else if (told && !areKept(wanted, *told)) {
        call.failAs(FailureCode::NotKept);
    } else {
        call.succeed();
    }
}

template <class... Results>
bool SFTPQueue::isNamed(const std::shared_ptr<Call<Results...>>& call)
{
    if (!call->path().empty()) {
        return true;
    }
    later([call] { call->failAs(FailureCode::BadName); });
    return false;
}

void SFTPQueue::do_lookUp(const std::string& path, Completion<const Attributes&> done)
{
    auto call = begin("lookUp", path, std::move(done));
    if (isNamed(call)) {
        askAttributes(path, [call](const auto& told, const Answer& answer) {
            if (told) {
                call->succeed(attributesOf(*told));
            } else {
                call->failFor(answer);
            }
        });
    }
}

void SFTPQueue::do_lookThrough(const std::string& path, Completion<const Attributes&> done)
{
    auto call = begin("lookThrough", path, std::move(done));
    if (isNamed(call)) {
        ask([path](SFTPPacketWriter& writer, std::uint32_t id) { writer.stat(id, path); },
            [call](const Answer& answer) { endByAttributes(*call, answer, SFTPSubject::Path); });
    }
}

void SFTPQueue::do_makeDirectory(const std::string& path, Permissions permissions,
                                 Completion<> done)
{
    auto call = begin("makeDirectory", path, std::move(done));
    if (!isNamed(call)) {
        return;
    }
    const auto make = [this, call, permissions] {
        SFTPFileAttributes attributes;
        attributes.permissions = permissions.raw();
        ask([call, attributes](SFTPPacketWriter& writer,
                               std::uint32_t id) { writer.mkdir(id, call->path(), attributes); },
            [this, call](const Answer& answer) {
                if (Call<>::isOk(answer)) {
                    call->succeed();
                    return;
                }
                explain(call, answer, call->path(), [](std::optional<std::uint32_t> kind) {
                    return reasonIf(kind.has_value(), FailureCode::Exists);
                });
            });
    };
    // Some servers, ProFTPD's and rclone's among them, answer with success where the directory was
    // there before, so it is looked for first.
    whereNothingStands(call, path, isKnownToRefuse_, make);
}

/// \param isSure the server refuses by itself, or nothing need be asked.
void SFTPQueue::whereNothingStands(const std::shared_ptr<Call<>>& call, const std::string& path,
                                   bool isSure, std::function<void()> then)
{
    if (isSure) {
        then();
        return;
    }
    askKind(path, [call, path, then = std::move(then)](std::optional<std::uint32_t> kind) {
        if (kind) {
            call->failAs(FailureCode::Exists, {}, path);
        } else {
            then();
        }
    });
}

void SFTPQueue::do_removeFile(const std::string& path, Completion<> done)
{
    auto call = begin("removeFile", path, std::move(done));
    if (!isNamed(call)) {
        return;
    }
    const auto remove = [this, call] {
        ask([call](SFTPPacketWriter& writer, std::uint32_t id) { writer.remove(id, call->path()); },
            [this, call](const Answer& answer) {
                if (Call<>::isOk(answer)) {
                    call->succeed();
                    return;
                }
                explain(call, answer, call->path(), [](std::optional<std::uint32_t> kind) {
                    return reasonIf(kind == directoryKind, FailureCode::IsDirectory);
                });
            });
    };
    if (isKnownToRefuse_) {
        remove();
        return;
    }
    askKind(path, [call, remove](std::optional<std::uint32_t> kind) {
        if (kind == directoryKind) {
            call->failAs(FailureCode::IsDirectory);
        } else {
            remove();
        }
    });
}

void SFTPQueue::do_removeDirectory(const std::string& path, Completion<> done)
{
    auto call = begin("removeDirectory", path, std::move(done));
    if (!isNamed(call)) {
        return;
    }
    const auto remove = [this, call] {
        ask([call](SFTPPacketWriter& writer, std::uint32_t id) { writer.rmdir(id, call->path()); },
            [this, call](const Answer& answer) {
                if (Call<>::isOk(answer)) {
                    call->succeed();
                    return;
                }
                // A directory that the server did not remove is taken for one that is not empty:
                // only a listing would tell.
                explain(call, answer, withoutTrailingSlash(call->path()),
                        [](std::optional<std::uint32_t> kind) {
                            return isOtherThanDirectory(kind)
                                       ? std::make_optional(FailureCode::NotDirectory)
                                       : reasonIf(kind == directoryKind, FailureCode::NotEmpty);
                        });
            });
    };
    if (isKnownToRefuse_) {
        remove();
        return;
    }
    askKind(withoutTrailingSlash(path), [call, remove](std::optional<std::uint32_t> kind) {
        if (isOtherThanDirectory(kind)) {
            call->failAs(FailureCode::NotDirectory);
        } else {
            remove();
        }
    });
}

void SFTPQueue::do_rename(const std::string& path, const std::string& newPath, Completion<> done)
{
    auto call = begin("rename", path, std::move(done));
    if (!isNamed(call)) {
        return;
    }
    // The new path is looked at on every server: none is known that never replaces.
    unlessFollowed(call, path, [this, call, newPath] {
        whereNothingStands(call, newPath, newPath.empty(),
                           [this, call, newPath] { renameWithoutLooking(call, newPath); });
    });
}

void SFTPQueue::do_renameToFree(const std::string& path, const std::string& newPath,
                                Completion<> done)
{
    auto call = begin("rename", path, std::move(done));
    if (isNamed(call)) {
        unlessFollowed(call, path, [this, call, newPath] { renameWithoutLooking(call, newPath); });
    }
}

void SFTPQueue::renameWithoutLooking(const std::shared_ptr<Call<>>& call,
                                     const std::string& newPath)
{
    ask([call, newPath](SFTPPacketWriter& writer,
                        std::uint32_t id) { writer.rename(id, call->path(), newPath); },
        [this, call, newPath](const Answer& answer) {
            if (Call<>::isOk(answer)) {
                call->succeed();
                return;
            }
            explain(call, answer, newPath, [](std::optional<std::uint32_t> kind) {
                return reasonIf(kind.has_value(), FailureCode::Exists);
            });
        });
}

void SFTPQueue::do_replace(const std::string& path, const std::string& newPath, Completion<> done)
{
    auto call = begin("replace", path, std::move(done));
    if (!isNamed(call)) {
        return;
    }
    if (!replaces_) {
        later([call] { call->failAs(FailureCode::Unsupported); });
        return;
    }
    const auto replace = [this, call, newPath] {
        ask([call, newPath](SFTPPacketWriter& writer,
                            std::uint32_t id) { writer.posixRename(id, call->path(), newPath); },
            [this, call, newPath](const Answer& answer) {
                if (Call<>::isOk(answer)) {
                    call->succeed();
                    return;
                }
                explain(call, answer, newPath, [](std::optional<std::uint32_t> kind) {
                    return reasonIf(kind == directoryKind, FailureCode::IsDirectory);
                });
            });
    };
    unlessFollowed(call, path,
                   [this, call, newPath, replace] { unlessFollowed(call, newPath, replace); });
}

/// mod_sftp renames, and replaces, what a link leads to, if that leads to anything.
void SFTPQueue::unlessFollowed(const std::shared_ptr<Call<>>& call, const std::string& path,
                               std::function<void()> then)
{
    if (server_ != SFTPServerKind::ModSftp) {
        then();
        return;
    }
    ask([path](SFTPPacketWriter& writer, std::uint32_t id) { writer.readlink(id, path); },
        [this, call, path, then = std::move(then)](const Answer& answer) {
            if (!linkTextIn(answer)) {
                then();
                return;
            }
            const auto decide = [call, path, then](const Answer& behind) {
                if (attributesIn(behind)) {
                    call->failAs(FailureCode::Unsupported,
                                 "the server takes a link for what it leads to", path);
                } else {
                    then();
                }
            };
            ask([path](SFTPPacketWriter& writer, std::uint32_t id) { writer.stat(id, path); },
                decide);
        });
}

void SFTPQueue::do_makeLink(const std::string& target, const std::string& path, Completion<> done)
{
    auto call = begin("makeLink", path, std::move(done));
    if (!isNamed(call)) {
        return;
    }
    whereNothingStands(call, path, knowsLinkOrder(path), [this, call, target] {
        if (knowsLinkOrder(call->path())) {
            sendLink(call, target);
            return;
        }
        // Servers differ in the order of the request's two paths; the file system finds out which
        // one this server has, by the first link that it makes.
        call->endBySystem([&](const FileSystem::FileSystem2& system) {
            return system.fileSymbolicLinkCreateAs(target, call->path(), true);
        });
    });
}

/// Whether a link can be asked for without more ado: the server has shown in which order it takes
/// the two paths, and refuses where something stands.
bool SFTPQueue::knowsLinkOrder(const std::string& path) const
{
    return isKnownToRefuse_ && path.back() != '/' && !sftp_->hasLeftLinks() &&
           sftp_->getLinkPathOrder() != LinkOrder::Unknown;
}

void SFTPQueue::sendLink(const std::shared_ptr<Call<>>& call, const std::string& target)
{
    const bool isAsLibsshSends = sftp_->getLinkPathOrder() == LinkOrder::AsLibsshSends;
    const bool isTargetFirst = isAsLibsshSends == libsshSendsTargetFirst_;
    ask(
        [call, target, isTargetFirst](SFTPPacketWriter& writer, std::uint32_t id) {
            writer.symlink(id, isTargetFirst ? target : call->path(),
                           isTargetFirst ? call->path() : target);
        },
        [this, call, target](const Answer& answer) {
            if (Call<>::isOk(answer)) {
                readLinkBack(call, target);
                return;
            }
            explain(call, answer, call->path(), [](std::optional<std::uint32_t> kind) {
                return reasonIf(kind.has_value(), FailureCode::Exists);
            });
        });
}

void SFTPQueue::readLinkBack(const std::shared_ptr<Call<>>& call, const std::string& target)
{
    ask([call](SFTPPacketWriter& writer, std::uint32_t id) { writer.readlink(id, call->path()); },
        [this, call, target](const Answer& answer) {
            if (answer.isLost) {
                call->failFor(answer);
            } else if (linkTextIn(answer) == target) {
                call->succeed();
            } else {
                undoLink(call);
            }
        });
}

/// Fails for a link that is not what was asked for, and removes it. It is ours: nothing stood there
/// before.
void SFTPQueue::undoLink(const std::shared_ptr<Call<>>& call)
{
    const auto giveUp = [call] {
        call->failAs(FailureCode::Protocol, "the server made another link than it was asked for",
                     call->path());
    };
    const auto isLeft = [this, giveUp](std::optional<std::uint32_t> kind) {
        if (kind == linkKind) {
            sftp_->markLeftLinks();
        }
        giveUp();
    };
    askKind(call->path(), [this, call, giveUp, isLeft](std::optional<std::uint32_t> kind) {
        if (kind != linkKind) {
            giveUp();
            return;
        }
        ask([call](SFTPPacketWriter& writer, std::uint32_t id) { writer.remove(id, call->path()); },
            [this, call, giveUp, isLeft](const Answer& answer) {
                if (Call<>::isOk(answer)) {
                    giveUp();
                } else {
                    askKind(call->path(), isLeft);
                }
            });
    });
}

void SFTPQueue::do_readLink(const std::string& path, Completion<const std::string&> done)
{
    auto call = begin("readLink", path, std::move(done));
    if (!isNamed(call)) {
        return;
    }
    ask([path](SFTPPacketWriter& writer, std::uint32_t id) { writer.readlink(id, path); },
        [this, call](const Answer& answer) {
            if (const auto target = linkTextIn(answer)) {
                call->succeed(*target);
                return;
            }
            explain(call, answer, call->path(), [](std::optional<std::uint32_t> kind) {
                return reasonIf(kind && *kind != 0 && kind != linkKind, FailureCode::NotALink);
            });
        });
}

template void SFTPQueue::explain(const std::shared_ptr<Call<const std::string&>>&, const Answer&,
                                 const std::string&, Reason, std::function<void()>);

void SFTPQueue::do_setAttributes(const std::string& path, const Attributes& attributes,
                                 Completion<> done)
{
    auto call = begin("setAttributes", path, std::move(done));
    if (!isNamed(call)) {
        return;
    }
    if (attributes.size) {
        later([call] {
            call->failAs(FailureCode::Unsupported, "a size can be set of an open file only");
        });
        return;
    }
    const auto seconds = attributes.modTime ? secondsOf(*attributes.modTime) : std::nullopt;
    if (attributes.modTime && !seconds) {
        later([call] { call->failAs(FailureCode::NotKept, "SFTP has no such time"); });
        return;
    }
    SFTPFileAttributes sent = attributesToSend(attributes);
    const bool follows = !setsUnfollowed_ || !isConfined(path);
    const auto send = [this, follows, call, attributes](const SFTPFileAttributes& all) {
        follows ? sendAttributes(call, all, attributes)
                : sendAttributesUnfollowed(call, all, attributes);
    };
    if (!seconds) {
        send(sent);
        return;
    }
    // Version 3 sets both times together, so the access time is read first and sent back as it is.
    ask(
        [path, follows](SFTPPacketWriter& writer, std::uint32_t id) {
            follows ? writer.stat(id, path) : writer.lstat(id, path);
        },
        [call, sent, send, time = *seconds](const Answer& answer) mutable {
            const auto told = attributesIn(answer);
            if (!told) {
                call->failFor(answer);
                return;
            }
            sent.times = SFTPFileTimes{told->times ? told->times->access : time, time};
            send(sent);
        });
}

void SFTPQueue::do_confine(const std::string& directory)
{
    confined_.push_back(withoutTrailingSlash(directory));
}

bool SFTPQueue::isConfined(const std::string& path) const
{
    return std::any_of(confined_.begin(), confined_.end(), [&path](const std::string& root) {
        return path.compare(0, root.size(), root) == 0 &&
               (path.size() == root.size() || root == "/" || path[root.size()] == '/');
    });
}

/// Servers may offer what their machine cannot do, as OpenSSH's does in a root of its own without
/// /proc; what is seen to be no link is set the usual way then.
void SFTPQueue::sendAttributesUnfollowed(const std::shared_ptr<Call<>>& call,
                                         const SFTPFileAttributes& sent, const Attributes& wanted)
{
    const auto lookBehindRefusal = [this, call, sent, wanted](const Answer& refusal) {
        askAttributes(call->path(),
                      [this, call, sent, wanted, refusal](const auto& told, const Answer&) {
                          const auto kind = told ? told->permissions.value_or(0) & kindBits : 0;
                          if (kind == linkKind) {
                              call->failAs(FailureCode::Changed);
                          } else if (kind == 0) {
                              call->failFor(refusal);
                          } else {
                              sendAttributes(call, sent, wanted);
                          }
                      });
    };
    ask([call, sent](SFTPPacketWriter& writer,
                     std::uint32_t id) { writer.lsetstat(id, call->path(), sent); },
        [this, call, wanted, lookBehindRefusal](const Answer& answer) {
            const auto status = Call<>::statusOf(answer);
            const bool isUnable = status && (status->code == SFTPStatusCode::Failure ||
                                             status->code == SFTPStatusCode::OperationUnsupported);
            if (isUnable) {
                lookBehindRefusal(answer);
            } else if (!Call<>::isOk(answer)) {
                call->failFor(answer);
            } else {
                checkAttributes(call, wanted, false);
            }
        });
}

void SFTPQueue::sendAttributes(const std::shared_ptr<Call<>>& call, const SFTPFileAttributes& sent,
                               const Attributes& wanted)
{
    ask([call, sent](SFTPPacketWriter& writer,
                     std::uint32_t id) { writer.setstat(id, call->path(), sent); },
        [this, call, wanted](const Answer& answer) {
            if (!Call<>::isOk(answer)) {
                call->failFor(answer);
                return;
            }
            checkAttributes(call, wanted, true);
        });
}

void SFTPQueue::checkAttributes(const std::shared_ptr<Call<>>& call, const Attributes& wanted,
                                bool follows)
{
    ask(
        [call, follows](SFTPPacketWriter& writer, std::uint32_t id) {
            follows ? writer.stat(id, call->path()) : writer.lstat(id, call->path());
        },
        [call, wanted](const Answer& readBack) {
            endBySetting(*call, std::nullopt, readBack, wanted, SFTPSubject::Path);
        });
}

void SFTPQueue::do_storageInfo(const std::string& path,
                               Completion<const StorageSystemStorageInfo&> done)
{
    auto call = begin("storageInfo", path, std::move(done));
    if (!isNamed(call)) {
        return;
    }
    const auto bySystem = [call] {
        // The file system asks for the nearest ancestor that is there.
        call->endBySystem([&](const FileSystem::FileSystem2& system) {
            return system.fileStorageInfo(call->path());
        });
    };
    if (!tellsVolumes_) {
        later(bySystem);
        return;
    }
    ask([path](SFTPPacketWriter& writer, std::uint32_t id) { writer.statvfs(id, path); },
        [call, bySystem](const Answer& answer) {
            const auto figures = !answer.isLost && answer.type == SFTPPacketType::ExtendedReply
                                     ? decodeVolumeFigures(answer.fields)
                                     : std::nullopt;
            if (figures) {
                StorageSystemStorageInfo info;
                info.free = figures->freeBlocks * figures->fragmentSize;
                info.available = figures->availableBlocks * figures->fragmentSize;
                info.capacity = figures->blocks * figures->fragmentSize;
                call->succeed(info);
                return;
            }
            const auto status = Call<>::statusOf(answer);
            if (status && status->code == SFTPStatusCode::NoSuchFile) {
                bySystem();
            } else {
                call->failFor(answer);
            }
        });
}

} // namespace Tarnis
