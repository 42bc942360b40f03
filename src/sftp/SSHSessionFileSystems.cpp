// The remote file trees that a session hands out.

#include "handles/LibsshCompatibility.h"
#include "handles/SSHCall.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSFTPSession.h"
#include "handles/SSHHandleSession.h"

#include <FileSystem/FailureScope.h>
#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/SessionBlockingGuard.h>

#include <memory>
#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::FailureSource;

namespace {

/// Gives a channel up at the end of a scope.
struct ChannelRelease
{
    void operator()(SSHHandleChannel* channel) const { channel->deleteMe(); }
};

/// Says why libssh could not make an SFTP session. To be called under the lock, at once.
void noteRefusal(ssh_session session, FailureCode otherwise)
{
    const int code = ssh_get_error_code(session);
    const char* const text = ssh_get_error(session);
    const FailureCode kind = ssh_is_connected(session) == 0 ? FailureCode::ConnectionLost
                             : code == SSH_REQUEST_DENIED   ? FailureCode::Denied
                                                            : otherwise;
    fail(kind, FailureSource::Transport, code, text != nullptr ? text : "");
}

/// An SFTP session that the server has not been spoken to on; null when it was refused.
std::shared_ptr<SSHHandleSFTPSession> openSftpSession(SSHHandleSession& session)
{
    const auto lock = session.getLock();
    const SessionBlockingGuard guard(session.getResource(), 1);
    const sftp_session sftp = callLocked(session, sftp_new);
    if (sftp == nullptr) {
        noteRefusal(session.getResource(), FailureCode::NoResources);
        return nullptr;
    }
    return makeChildHandle<SSHHandleSFTPSession>(session, sftp);
}

/// Agrees on the protocol version with the server.
bool initialise(SSHHandleSFTPSession& sftp)
{
    const auto lock = sftp.getLock();
    const SessionBlockingGuard guard(sftp.getResource(), 1);
    if (callLocked(sftp, sftp_init) == SSH_OK) {
        Compatibility::allowUnlimitedWrites(sftp.getResource());
        return true;
    }
    // The channel is there, but nobody at its other end speaks SFTP.
    noteRefusal(sftp.getResource()->session, FailureCode::Unsupported);
    return false;
}

} // namespace

std::unique_ptr<SSHFileSystemSFTP> SSHSession::createSFTPFileSystem()
{
    FileSystem::FailureScope scope("createSFTPFileSystem");
    session_->retireLostSftpSessions();
    // Only shows that there is memory for channels; a handle, since a disconnect in between would
    // free a bare one.
    const auto probe = SSHHandleChannel::create(*session_);
    if (probe == nullptr) {
        fail(FailureCode::NoResources);
        return scope.result(std::unique_ptr<SSHFileSystemSFTP>());
    }
    const std::unique_ptr<SSHHandleChannel, ChannelRelease> probeRelease(probe.get());
    auto sftp = openSftpSession(*session_);
    if (sftp == nullptr) {
        return scope.result(std::unique_ptr<SSHFileSystemSFTP>());
    }
    if (!initialise(*sftp)) {
        sftp->deleteMe();
        return scope.result(std::unique_ptr<SSHFileSystemSFTP>());
    }
    return scope.result(std::make_unique<SSHFileSystemSFTP>(std::move(sftp)));
}

} // namespace Tarnis
