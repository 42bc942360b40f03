#include "sftp/SFTPReplacingRename.h"

#include "sftp/LibsshRequests.h"
#include "sftp/SFTPCall.h"
#include "sftp/SFTPLookUp.h"
#include "sftp/wire/SFTPPacketWriter.h"
#include "sftp/wire/SFTPReplyFields.h"

#include <optional>

namespace Tarnis {

namespace {

constexpr const char* posixRename = "posix-rename@openssh.com";

/// From this version on libssh sends the extension by itself, where it is offered.
bool libsshReplaces() noexcept
{
    return ssh_version(SSH_VERSION_INT(0, 11, 0)) != nullptr;
}

/// The status of the answer, if one comes.
std::optional<std::uint32_t> askToRename(sftp_session sftp, std::atomic<bool>& lost,
                                         const std::string& path, const std::string& newPath)
{
    LibsshRequests requests(lost);
    const auto number = requests.takeNumber(sftp);
    if (!number) {
        return std::nullopt;
    }
    std::string packet;
    SFTPPacketWriter(packet).posixRename(*number, path, newPath);
    const auto reply =
        LibsshRequests::send(sftp, packet) ? requests.await(sftp, *number) : std::nullopt;
    const bool isStatus = reply && typeOf(*reply) == SFTPPacketType::Status;
    const auto status = isStatus ? decodeStatus(reply->fields()) : std::nullopt;
    return status ? std::make_optional(static_cast<std::uint32_t>(status->code)) : std::nullopt;
}

bool renameByOwnRequest(SSHHandleSFTPSession& sftp, const std::string& path,
                        const std::string& newPath)
{
    const auto ask = [&](sftp_session raw) {
        return askToRename(raw, sftp.lossMark(), path, newPath);
    };
    const auto status = askForStatus(sftp, newPath, ask);
    return status && (*status == SSH_FX_OK || failBySftpStatus(*status, {}, newPath));
}

bool offersReplacing(sftp_session sftp) noexcept
{
    return sftp_extension_supported(sftp, posixRename, "1") != 0;
}

} // namespace

bool renameReplacing(SSHHandleSFTPSession& sftp, const std::string& path,
                     const std::string& newPath)
{
    const auto offers = callUnlessLost(sftp, offersReplacing);
    if (!offers.value_or(false)) {
        return offers.has_value() ? false : failForLostSftp(newPath);
    }
    // A link that the server would follow is neither renamed nor replaced.
    if (isFollowedByRename(sftp, path) || isFollowedByRename(sftp, newPath)) {
        return false;
    }
    if (libsshReplaces()) {
        return callSftp(sftp, newPath, sftp_rename, path.c_str(), newPath.c_str()) == SSH_OK;
    }
    return renameByOwnRequest(sftp, path, newPath);
}

} // namespace Tarnis
