// The remote file trees that a session hands out.

#include "handles/SSHCall.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSFTPSession.h"
#include "handles/SSHHandleSession.h"

#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/SessionBlockingGuard.h>

#include <memory>
#include <utility>

namespace Tarnis {

namespace {

/// Gives a channel up at the end of a scope.
struct ChannelRelease
{
    void operator()(SSHHandleChannel* channel) const { channel->deleteMe(); }
};

/// An SFTP session that the server has not been spoken to on; null when it was refused.
std::shared_ptr<SSHHandleSFTPSession> openSftpSession(SSHHandleSession& session)
{
    const auto lock = session.getLock();
    const SessionBlockingGuard guard(session.getResource(), 1);
    const sftp_session sftp = callLocked(session, sftp_new);
    return sftp != nullptr ? makeChildHandle<SSHHandleSFTPSession>(session, sftp) : nullptr;
}

/// Agrees on the protocol version with the server.
bool initialise(SSHHandleSFTPSession& sftp)
{
    const auto lock = sftp.getLock();
    const SessionBlockingGuard guard(sftp.getResource(), 1);
    return callLocked(sftp, sftp_init) == SSH_OK;
}

} // namespace

std::unique_ptr<SSHFileSystemSFTP> SSHSession::createSFTPFileSystem()
{
    // Only shows that there is memory for channels; a handle, since a disconnect in between would
    // free a bare one.
    const auto probe = SSHHandleChannel::create(*session_);
    if (probe == nullptr) {
        return nullptr;
    }
    const std::unique_ptr<SSHHandleChannel, ChannelRelease> probeRelease(probe.get());
    auto sftp = openSftpSession(*session_);
    if (sftp == nullptr) {
        return nullptr;
    }
    if (!initialise(*sftp)) {
        sftp->deleteMe();
        return nullptr;
    }
    return std::make_unique<SSHFileSystemSFTP>(std::move(sftp));
}

} // namespace Tarnis
