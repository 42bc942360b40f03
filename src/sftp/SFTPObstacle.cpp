#include "sftp/SFTPObstacle.h"

#include "sftp/SFTPCall.h"
#include "sftp/SFTPDirectory.h"
#include "sftp/SFTPLookUp.h"
#include "sftp/SFTPServerKind.h"

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <string_view>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FailureSource;

namespace {

bool isKnownToRefuse(SSHHandleSFTPSession& sftp)
{
    return callUnlessLost(sftp, isOpenSshSftpServer).value_or(false);
}

/// The kind bits of what stands at the path; zero where the server does not tell them. Empty:
/// nothing is there, or it cannot be told.
std::optional<std::uint32_t> kindAt(SSHHandleSFTPSession& sftp, const std::string& path)
{
    const SFTPAttributes attributes = lookUp(sftp, path, SFTPNotes::LossOnly);
    return attributes != nullptr ? std::make_optional(attributes->permissions & kindBits)
                                 : std::nullopt;
}

bool isOtherThanDirectory(std::optional<std::uint32_t> kind) noexcept
{
    return kind && *kind != 0 && *kind != directoryKind;
}

/// With a slash behind it a link would be taken for the directory that it leads to.
std::string withoutTrailingSlash(const std::string& path)
{
    const auto last = path.find_last_not_of('/');
    return last == std::string::npos ? path.substr(0, 1) : path.substr(0, last + 1);
}

/// Notes the last failure anew where it is one of these statuses of the server's and `look` finds
/// a reason for it.
template <class Look>
void explain(std::initializer_list<std::int64_t> statuses, Look look)
{
    const Failure refusal = Failure::last();
    const bool isVague =
        refusal && refusal.source() == FailureSource::Server &&
        std::find(statuses.begin(), statuses.end(), refusal.number()) != statuses.end();
    if (!isVague) {
        return;
    }
    const std::optional<FailureCode> reason = look();
    fail(reason ? make_error_code(*reason) : refusal.code(), refusal.source(), refusal.number(),
         refusal.text(), refusal.entry());
}

std::optional<FailureCode> reasonIf(bool applies, FailureCode reason)
{
    return applies ? std::make_optional(reason) : std::nullopt;
}

bool isFree(SSHHandleSFTPSession& sftp, const std::string& path)
{
    return !kindAt(sftp, path) || fail(FailureCode::Exists, {}, path);
}

/// Whether the server gives this text to a request for what is not there.
bool isTextForMissing(SSHHandleSFTPSession& sftp, const std::string& path, const std::string& text)
{
    std::string given;
    const SFTPAttributes found(askSftp(sftp, path, [&](sftp_session raw) {
        const sftp_attributes attributes = sftp_lstat(raw, path.c_str());
        given = sftpErrorText(raw);
        return attributes;
    }));
    return found == nullptr && !text.empty() && given == text;
}

/// Whether a directory, or a link to one, stands at the path.
bool isDirectory(SSHHandleSFTPSession& sftp, const std::string& path)
{
    const SFTPAttributes attributes(askSftp(sftp, path, sftp_stat, path.c_str()));
    return attributes != nullptr && (attributes->permissions & kindBits) == directoryKind;
}

bool hasEntries(const std::shared_ptr<SSHHandleSFTPSession>& sftp, const std::string& path)
{
    SFTPDirectory directory(sftp, path);
    while (const SFTPAttributes entry = directory.next()) {
        const std::string_view name = entry->name;
        if (name != "." && name != "..") {
            return true;
        }
    }
    return false;
}

} // namespace

bool isSeenToBeNoFile(SSHHandleSFTPSession& sftp, const std::string& path)
{
    const SFTPAttributes attributes(askSftp(sftp, path, sftp_stat, path.c_str()));
    const std::uint32_t kind = attributes != nullptr ? attributes->permissions & kindBits : 0;
    return kind != 0 && kind != regularKind && kind != directoryKind;
}

bool mayOpenAsNew(SSHHandleSFTPSession& sftp, const std::string& path)
{
    return isKnownToRefuse(sftp) || isFree(sftp, path);
}

bool makeDirectory(SSHHandleSFTPSession& sftp, const std::string& path, mode_t mode)
{
    const auto make = [&] {
        return callSftp(sftp, path, sftp_mkdir, path.c_str(), mode) == SSH_OK;
    };
    if (!callUnlessLost(sftp, isModSftp).value_or(false)) {
        return make();
    }
    // Of many threads that make one directory only one may be told that it has made it.
    const auto lock = sftp.getLock();
    return isFree(sftp, path) && make();
}

// OpenSSH's sftp-server refuses for regular files alone, which it gives a second name and takes the
// first one from. For all else, and on volumes that know no second names, it looks first too, but
// through a link, so that one that leads nowhere is replaced (read in 9.2, and seen).
bool mayRenameTo(SSHHandleSFTPSession& sftp, const std::string& path)
{
    return isFree(sftp, path);
}

bool mayRemoveAsFile(SSHHandleSFTPSession& sftp, const std::string& path)
{
    return isKnownToRefuse(sftp) || kindAt(sftp, path) != directoryKind ||
           fail(FailureCode::IsDirectory, {}, path);
}

bool mayRemoveAsDirectory(SSHHandleSFTPSession& sftp, const std::string& path)
{
    return isKnownToRefuse(sftp) ||
           !isOtherThanDirectory(kindAt(sftp, withoutTrailingSlash(path))) ||
           fail(FailureCode::NotDirectory, {}, path);
}

void explainOpening(SSHHandleSFTPSession& sftp, const std::string& path, bool exclusive)
{
    explain({SSH_FX_FAILURE}, [&] {
        const auto kind = kindAt(sftp, path);
        return exclusive && kind ? std::make_optional(FailureCode::Exists)
                                 : reasonIf(kind == directoryKind, FailureCode::IsDirectory);
    });
}

void explainListing(SSHHandleSFTPSession& sftp, const std::string& path)
{
    explain({SSH_FX_FAILURE, SSH_FX_NO_SUCH_FILE}, [&] {
        const auto kind = kindAt(sftp, path);
        return reasonIf(isOtherThanDirectory(kind) && kind != linkKind, FailureCode::NotDirectory);
    });
}

// After a "failure" libssh itself looks what stands at the path, and where nothing does, its status
// becomes that look's, while the text stays. So a disk that is full or not to be written, which has
// no status of its own, would pass for a parent that is missing.
void explainMaking(SSHHandleSFTPSession& sftp, const std::string& path, const std::string& parent)
{
    explain({SSH_FX_FAILURE},
            [&] { return reasonIf(kindAt(sftp, path).has_value(), FailureCode::Exists); });
    const Failure refusal = Failure::last();
    const bool isNotFound = refusal && refusal.source() == FailureSource::Server &&
                            refusal.number() == SSH_FX_NO_SUCH_FILE;
    if (isNotFound && !isTextForMissing(sftp, path, refusal.text()) && isDirectory(sftp, parent)) {
        fail(FailureCode::Other, FailureSource::Server, SSH_FX_FAILURE, refusal.text(),
             refusal.entry());
    }
}

void explainRenaming(SSHHandleSFTPSession& sftp, const std::string& path,
                     const std::string& newPath)
{
    explain({SSH_FX_FAILURE}, [&] {
        return kindAt(sftp, newPath)
                   ? std::make_optional(FailureCode::Exists)
                   : reasonIf(!kindAt(sftp, path) && !sftp.isLost(), FailureCode::NotFound);
    });
}

void explainFileRemoval(SSHHandleSFTPSession& sftp, const std::string& path)
{
    explain({SSH_FX_FAILURE}, [&] {
        return reasonIf(kindAt(sftp, path) == directoryKind, FailureCode::IsDirectory);
    });
}

void explainDirectoryRemoval(const std::shared_ptr<SSHHandleSFTPSession>& sftp,
                             const std::string& path)
{
    explain({SSH_FX_FAILURE, SSH_FX_NO_SUCH_FILE}, [&] {
        const auto kind = kindAt(*sftp, withoutTrailingSlash(path));
        return isOtherThanDirectory(kind)
                   ? std::make_optional(FailureCode::NotDirectory)
                   : reasonIf(kind == directoryKind && hasEntries(sftp, path),
                              FailureCode::NotEmpty);
    });
}

void explainReadingLink(SSHHandleSFTPSession& sftp, const std::string& path)
{
    // OpenSSH calls it a bad message, ProFTPD an operation that it does not support.
    explain({SSH_FX_FAILURE, SSH_FX_BAD_MESSAGE, SSH_FX_OP_UNSUPPORTED}, [&] {
        const auto kind = kindAt(sftp, path);
        return reasonIf(kind && *kind != 0 && kind != linkKind, FailureCode::NotALink);
    });
}

} // namespace Tarnis
