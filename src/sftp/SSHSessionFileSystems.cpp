// The remote file trees that a session hands out.

#include "handles/LibsshCompatibility.h"
#include "handles/SSHCall.h"
#include "handles/SSHFailure.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSFTPSession.h"
#include "handles/SSHHandleSession.h"
#include "session/SSHSessionConnection.h"

#include <FileSystem/FailureScope.h>
#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/SessionBlockingGuard.h>

#include <memory>
#include <string_view>
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

/// Whether the last failure was that of the request for the subsystem, on a channel that the server
/// had opened: so say 0.10.6, 0.11.5 and 0.12.2, whose sftp_new() does both. The last of them names
/// the channel behind that.
bool isSubsystemRefused(ssh_session session)
{
    constexpr std::string_view refusal = "Channel request subsystem failed";
    return ssh_get_error_code(session) == SSH_REQUEST_DENIED &&
           transportText(session).compare(0, refusal.size(), refusal) == 0;
}

/// Notes why libssh could not make an SFTP session. To be called under the lock, at once.
void noteRefusal(ssh_session session)
{
    if (isSubsystemRefused(session) && ssh_is_connected(session) != 0) {
        fail(FailureCode::Unsupported, FailureSource::Transport, ssh_get_error_code(session),
             transportText(session));
    } else {
        noteTransportFailure(session, FailureCode::NoResources);
    }
}

/// An SFTP session that the server has not been spoken to on; null when it was refused, for a
/// reason that is still to be noted.
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
    if (callLocked(sftp, sftp_init) == SSH_OK) {
        Compatibility::allowUnlimitedWrites(sftp.getResource());
        return true;
    }
    // The channel is there, but nobody at its other end speaks SFTP.
    return noteTransportFailure(sftp.getResource()->session, FailureCode::Unsupported);
}

} // namespace

/// \param hasChannel libssh has a channel to give, so that it was the server that was asked. To be
///                   called under the lock then.
void SSHSession::noteWhyNoSftp(bool hasChannel) const
{
    if (state_->load() == RemoteSessionState::Disconnected) {
        connection_->noteWhyNotConnected();
    } else if (hasChannel) {
        noteRefusal(session_->getResource());
    } else {
        noteWhyNoChannel();
    }
}

std::unique_ptr<SSHFileSystemSFTP> SSHSession::createSFTPFileSystem()
{
    FileSystem::FailureScope scope("createSFTPFileSystem");
    session_->retireLostSftpSessions();
    // Only shows that there is memory for channels; a handle, since a disconnect in between would
    // free a bare one.
    const auto probe = SSHHandleChannel::create(*session_);
    if (probe == nullptr) {
        noteWhyNoSftp(false);
        return scope.result(std::unique_ptr<SSHFileSystemSFTP>());
    }
    const std::unique_ptr<SSHHandleChannel, ChannelRelease> probeRelease(probe.get());
    auto lock = session_->getLock();
    auto sftp = openSftpSession(*session_);
    if (sftp == nullptr) {
        noteWhyNoSftp(true);
        return scope.result(std::unique_ptr<SSHFileSystemSFTP>());
    }
    lock.reset();
    if (!initialise(*sftp)) {
        sftp->deleteMe();
        return scope.result(std::unique_ptr<SSHFileSystemSFTP>());
    }
    return scope.result(std::make_unique<SSHFileSystemSFTP>(std::move(sftp)));
}

} // namespace Tarnis
