// The remote file trees that a session hands out.

#include "handles/ChannelOpening.h"
#include "handles/LibsshStructures.h"
#include "handles/SSHCall.h"
#include "handles/SSHFailure.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSFTPSession.h"
#include "handles/SSHHandleSession.h"
#include "process/ChannelRequests.h"
#include "session/SSHSessionConnection.h"
#include "sftp/SFTPServerKind.h"

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
/// \param status what libssh answered.
void noteRefusal(ssh_session session, int status = SSH_ERROR)
{
    if (ssh_is_connected(session) == 0) {
        noteTransportFailure(session);
    } else if (status == SSH_AGAIN) {
        fail(FailureCode::TimedOut);
    } else if (status == SSH_EOF) {
        fail(FailureCode::Denied, closedInsteadOfAnswering);
    } else if (isSubsystemRefused(session)) {
        fail(FailureCode::Unsupported, FailureSource::Transport, ssh_get_error_code(session),
             transportText(session));
    } else {
        noteTransportFailure(session, FailureCode::NoResources);
    }
}

/// Opens the channel and has SFTP started on it; libssh's status.
int startSftp(SSHHandleChannel& channel)
{
    const SessionBlockingGuard guard(channel.getResource(), 1);
    if (ChannelOpening(channel, [&channel] { return channel.renew(); }).finish() != SSH_OK) {
        return SSH_ERROR;
    }
    return callUnblocked(channel, [sent = false](ssh_channel c) mutable {
        const int result = requestSftp(c, sent);
        sent = result == SSH_AGAIN;
        return result;
    });
}

/// What sftp_new() does, on a channel of our own, for the sake of servers that may close it instead
/// of answering the request. Null: it was refused, which is noted.
sftp_session newSftpOn(SSHHandleChannel& channel)
{
    const int status = startSftp(channel);
    ssh_session session = ssh_channel_get_session(channel.getResource());
    if (status != SSH_OK) {
        noteRefusal(session, status);
        return nullptr;
    }
    const sftp_session sftp = sftp_new_channel(session, channel.getResource());
    if (sftp == nullptr) {
        fail(FailureCode::NoResources);
        return nullptr;
    }
    static_cast<void>(channel.takeChannel());
    return sftp;
}

/// The same by sftp_new(), which waits for the answer alone: for OpenSSH, which always gives one.
sftp_session newSftp(SSHHandleSession& session)
{
    const SessionBlockingGuard guard(session.getResource(), 1);
    const sftp_session sftp = callLocked(session, sftp_new);
    if (sftp == nullptr) {
        noteRefusal(session.getResource());
    }
    return sftp;
}

/// An SFTP session that the server has not been spoken to on; null when it was refused, which is
/// noted. To be called under the lock.
/// \param channel not opened yet.
std::shared_ptr<SSHHandleSFTPSession> openSftpSession(SSHHandleSession& session,
                                                      SSHHandleChannel& channel)
{
    const bool answers = callLocked(session, sftpServerKindOf) == SFTPServerKind::OpenSsh;
    sftp_session sftp = answers ? newSftp(session) : nullptr;
    if (!answers || (sftp == nullptr && session.hasSpares())) {
        sftp = newSftpOn(channel);
    }
    return sftp != nullptr ? makeChildHandle<SSHHandleSFTPSession>(session, sftp) : nullptr;
}

/// Agrees on the protocol version with the server.
bool initialise(SSHHandleSFTPSession& sftp)
{
    const auto lock = sftp.getLock();
    const SessionBlockingGuard guard(sftp.getResource(), 1);
    if (callLocked(sftp, sftp_init) == SSH_OK) {
        allowUnlimitedWrites(sftp.getResource());
        return true;
    }
    // The channel is there, but nobody at its other end speaks SFTP.
    ssh_session session = sessionOf(sftp.getResource());
    if (ssh_is_connected(session) != 0 &&
        ssh_channel_is_closed(channelOf(sftp.getResource())) != 0) {
        // libssh has nothing to say of that, or that it could not write.
        return fail(FailureCode::Unsupported, "the SFTP server has ended");
    }
    return noteTransportFailure(session, FailureCode::Unsupported);
}

} // namespace

/// \param hasChannel libssh has a channel to give, so that it was the server that was asked, whose
///                   refusal is noted already.
void SSHSession::noteWhyNoSftp(bool hasChannel) const
{
    if (state_->load() == RemoteSessionState::Disconnected) {
        connection_->noteWhyNotConnected();
    } else if (!hasChannel) {
        noteWhyNoChannel();
    }
}

std::unique_ptr<SSHFileSystemSFTP> SSHSession::createSFTPFileSystem()
{
    FileSystem::FailureScope scope("createSFTPFileSystem");
    session_->retireLostSftpSessions();
    // Also while it is found out why there is none: another thread may be connecting again.
    auto lock = session_->getLock();
    // Shows that there is memory for channels, and is the one that is used where sftp_new() is not;
    // a handle, since a disconnect in between would free a bare one.
    const auto probe = SSHHandleChannel::create(*session_);
    if (probe == nullptr) {
        noteWhyNoSftp(false);
        return scope.result(std::unique_ptr<SSHFileSystemSFTP>());
    }
    const std::unique_ptr<SSHHandleChannel, ChannelRelease> probeRelease(probe.get());
    auto sftp = openSftpSession(*session_, *probe);
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
