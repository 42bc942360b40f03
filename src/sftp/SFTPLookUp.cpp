#include "sftp/SFTPLookUp.h"

#include "sftp/SFTPCall.h"
#include "sftp/SFTPLinkTarget.h"
#include "sftp/SFTPServerKind.h"

#include <optional>

namespace Tarnis {

namespace {

constexpr std::uint32_t linkWithAllPermissions = 0120777;

bool isDirectoryMode(std::uint32_t mode) noexcept
{
    constexpr std::uint32_t kindBits = 0170000;
    constexpr std::uint32_t directoryKind = 0040000;
    return (mode & kindBits) == directoryKind;
}

SFTPAttributes readAttributes(SSHHandleSFTPSession& sftp, const std::string& path, SFTPNotes notes)
{
    return SFTPAttributes(callSftpNoting(notes, sftp, path, sftp_lstat, path.c_str()));
}

/// Whether what the server has told may be of a link's target. Of ProFTPD that is known. Others are
/// trusted with files, but not with directories, which are entered: not before they have told a
/// link.
bool mayBeFollowed(SSHHandleSFTPSession& sftp, const SFTPAttributes& told)
{
    if (isLinkMode(told->permissions)) {
        sftp.markTellsLinks();
        return false;
    }
    if (callUnlessLost(sftp, isModSftp).value_or(false)) {
        return true;
    }
    return isDirectoryMode(told->permissions) && !sftp.tellsLinks() &&
           !callUnlessLost(sftp, isOpenSshSftpServer).value_or(true);
}

/// What a link says whose target's attributes the server has told in place of its own.
std::optional<std::string> followedLink(SSHHandleSFTPSession& sftp, const std::string& path,
                                        const SFTPAttributes& told)
{
    if (told == nullptr || !mayBeFollowed(sftp, told)) {
        return std::nullopt;
    }
    auto text = readLinkTarget(sftp, path, SFTPNotes::LossOnly);
    // Some servers answer for whatever stands there, with its own path.
    return text != path ? text : std::nullopt;
}

} // namespace

SFTPAttributes lookUp(SSHHandleSFTPSession& sftp, const std::string& path, SFTPNotes notes)
{
    SFTPAttributes attributes = readAttributes(sftp, path, notes);
    if (const auto text = followedLink(sftp, path, attributes)) {
        attributes->permissions = linkWithAllPermissions;
        attributes->size = text->size();
    }
    return attributes;
}

bool isFollowedByRename(SSHHandleSFTPSession& sftp, const std::string& path)
{
    const bool isFollowed =
        callUnlessLost(sftp, isModSftp).value_or(false) &&
        followedLink(sftp, path, readAttributes(sftp, path, SFTPNotes::LossOnly)).has_value();
    if (isFollowed) {
        FileSystem::fail(FileSystem::FailureCode::Unsupported,
                         "the server takes a link for what it leads to", path);
    }
    return isFollowed;
}

} // namespace Tarnis
