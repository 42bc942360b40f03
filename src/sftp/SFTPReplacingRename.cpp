#include "sftp/SFTPReplacingRename.h"

#include "handles/SSHCall.h"
#include "handles/SSHHandleSFTPSession.h"
#include "sftp/SFTPLookUp.h"
#include "sftp/SFTPReplies.h"
#include "sftp/SFTPRequest.h"

#include <memory>
#include <string_view>

namespace Tarnis {

namespace {

constexpr std::uint8_t extendedPacket = 200;
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

bool rename(sftp_session sftp, const std::string& path, const std::string& newPath)
{
    if (!canSendRequests() || sftp_extension_supported(sftp, posixRename, "1") == 0) {
        return false;
    }
    NoFile file(sftp);
    const auto id = file.get() != nullptr ? newRequestId(file.get()) : std::nullopt;
    if (!id || !sendPosixRename(sftp, *id, path, newPath)) {
        return false;
    }
    SFTPReplyStream stream;
    return collectStatusAlone(file.get(), *id, stream) == static_cast<std::uint32_t>(SSH_FX_OK);
}

} // namespace

bool renameReplacing(SSHHandleSFTPSession& sftp, const std::string& path,
                     const std::string& newPath)
{
    // Better not at all than something else than what was named.
    return !isFollowedByRename(sftp, path) && !isFollowedByRename(sftp, newPath) &&
           callLocked(sftp, [&](sftp_session raw) { return rename(raw, path, newPath); });
}

} // namespace Tarnis
