#include "sftp/SFTPLookUp.h"

#include "sftp/SFTPCall.h"
#include "sftp/SFTPLinkTarget.h"
#include "sftp/SFTPServerKind.h"

#include <optional>

namespace Tarnis {

namespace {

constexpr std::uint32_t linkWithAllPermissions = 0120777;

SFTPAttributes readAttributes(SSHHandleSFTPSession& sftp, const std::string& path, SFTPNotes notes)
{
    return SFTPAttributes(callSftpNoting(notes, sftp, path, sftp_lstat, path.c_str()));
}

/// What a link says whose target's attributes the server has told in place of its own.
std::optional<std::string> followedLink(SSHHandleSFTPSession& sftp, const std::string& path,
                                        const SFTPAttributes& told)
{
    const bool mayBeFollowed = told != nullptr && !isLinkMode(told->permissions) &&
                               callUnlessLost(sftp, isModSftp).value_or(false);
    return mayBeFollowed ? readLinkTarget(sftp, path, SFTPNotes::LossOnly) : std::nullopt;
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
