#include "sftp/SFTPReplacingRename.h"

#include "sftp/SFTPCall.h"
#include "sftp/SFTPLookUp.h"
#include "sftp/SFTPReplies.h"
#include "sftp/SFTPRequest.h"

#include <memory>
#include <optional>
#include <string_view>

namespace Tarnis {

namespace {

constexpr const char* posixRename = "posix-rename@openssh.com";

struct StringDeleter
{
    void operator()(ssh_string text) const noexcept { ssh_string_free(text); }
};

/// What libssh takes for a file where it needs one to find the SFTP session.
class NoFile
{
public:
    explicit NoFile(sftp_session sftp)
        : handle_(ssh_string_new(0))
    {
        file_.sftp = sftp;
        file_.handle = handle_.get();
    }

    sftp_file get() noexcept { return handle_ != nullptr ? &file_ : nullptr; }

private:
    std::unique_ptr<ssh_string_struct, StringDeleter> handle_;
    sftp_file_struct file_ = {};
};

bool sendPosixRename(sftp_session sftp, std::uint32_t id, const std::string& path,
                     const std::string& newPath)
{
    const std::string_view extension = posixRename;
    std::vector<char> packet;
    SFTPRequestWriter writer(packet, extendedPacket, id,
                             3 * SFTPRequestWriter::textOverhead + extension.size() + path.size() +
                                 newPath.size());
    writer.text(extension);
    writer.text(path);
    writer.text(newPath);
    return sendRequest(sftp, packet);
}

/// From this version on libssh sends the extension by itself, where it is offered.
bool libsshReplaces() noexcept
{
    return ssh_version(SSH_VERSION_INT(0, 11, 0)) != nullptr;
}

/// The status of the answer, if one comes.
std::optional<std::uint32_t> askToRename(sftp_session sftp, SFTPReplyStream& stream,
                                         const std::string& path, const std::string& newPath)
{
    NoFile file(sftp);
    const auto id = file.get() != nullptr ? newRequestId(file.get()) : std::nullopt;
    if (!id || !sendPosixRename(sftp, *id, path, newPath)) {
        return std::nullopt;
    }
    return collectStatusAlone(file.get(), *id, stream);
}

bool renameByOwnRequest(SSHHandleSFTPSession& sftp, const std::string& path,
                        const std::string& newPath)
{
    SFTPReplyStream stream(sftp.lossMark());
    const auto ask = [&](sftp_session raw) { return askToRename(raw, stream, path, newPath); };
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
