#include "sftp/SFTPCall.h"

#include "handles/SSHFailure.h"

#include <Tarnis/SessionBlockingGuard.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::FailureSource;

namespace {

/// Whether the channel takes no bytes any more, though libssh says that it is open. To be asked in
/// non-blocking mode: a channel that takes bytes sends what waits to leave.
bool isClosedToWriting(sftp_session sftp) noexcept
{
    const SessionBlockingGuard guard(sftp, 0);
    return ssh_channel_write(sftp->channel, "", 0) < 0;
}

/// Whether the last call failed because its request could not be sent any more: the server has
/// closed the channel. As long as replies from before that lie unread libssh (0.10.6, 0.11.5 and
/// 0.12.2) says that the channel is open, refuses requests with this text, and gives some of them a
/// status as if the server had answered. The text alone proves nothing: libssh keeps one for all
/// channels of the session, until the next failure that has a text. So the channel is tried.
bool isUnsendable(sftp_session sftp) noexcept
{
    if (sftp->errnum == SSH_FX_EOF || ssh_get_error_code(sftp->session) != SSH_REQUEST_DENIED) {
        // The end of a file or of a directory leaves what an earlier call has said.
        return false;
    }
    const char* const text = ssh_get_error(sftp->session);
    return text != nullptr && std::string_view(text) == "Remote channel is closed" &&
           isClosedToWriting(sftp);
}

/// Whether the last call failed because a packet could not be read, in the words of libssh (0.10.6,
/// 0.11.5 and 0.12.2), which throws it away: nobody can tell whose reply it was, nor, where it was
/// its length, where the next one begins. These texts too may be old, so that a call must have set
/// a status with them.
bool isOutOfStep(sftp_session sftp) noexcept
{
    if (sftp->errnum == SSH_FX_OK || ssh_get_error_code(sftp->session) != SSH_FATAL) {
        return false;
    }
    const char* const error = ssh_get_error(sftp->session);
    const std::string_view text(error != nullptr ? error : "");
    constexpr std::array beginnings{"Invalid sftp packet size!", "Unknown packet type",
                                    "Invalid packet"};
    return std::any_of(beginnings.begin(), beginnings.end(), [text](std::string_view beginning) {
        return text.substr(0, beginning.size()) == beginning;
    });
}

/// Whether the last failure of a call is an answer of the server's. What libssh finds wrong by
/// itself gets a status too, but is fatal to it.
bool isAnswer(sftp_session sftp) noexcept
{
    return sftp->errnum > SSH_FX_EOF && ssh_get_error_code(sftp->session) == SSH_REQUEST_DENIED &&
           !isUnsendable(sftp);
}

} // namespace

bool failForLostSftp(const std::string& entry)
{
    return fail(FailureCode::ConnectionLost, FailureSource::Transport, 0,
                "the SFTP session has ended", entry);
}

bool failBySftpStatus(std::uint32_t status, std::string text, const std::string& entry,
                      SFTPSubject subject)
{
    return fail(failureCodeOfSftpStatus(status, subject), FailureSource::Server, status,
                std::move(text), entry);
}

bool markIfLost(sftp_session sftp, std::atomic<bool>& lost) noexcept
{
    // A channel counts as closed when its connection has gone, too; one whose server program has
    // ended tells so itself while the connection lives on. Replies that have arrived are read
    // before a channel counts as being at its end.
    const bool isLost = ssh_channel_is_closed(sftp->channel) != 0 ||
                        ssh_channel_is_eof(sftp->channel) != 0 || isUnsendable(sftp) ||
                        isOutOfStep(sftp);
    if (isLost) {
        lost = true;
    }
    return isLost;
}

std::string sftpErrorText(sftp_session sftp)
{
    const char* const error = ssh_get_error(sftp->session);
    std::string_view text(error != nullptr ? error : "");
    for (const std::string_view prefix : {"SFTP server: ", "SFTP server : "}) {
        if (text.substr(0, prefix.size()) == prefix) {
            text.remove_prefix(prefix.size());
        }
    }
    return std::string(text);
}

void noteSftpFailure(sftp_session sftp, std::atomic<bool>& lost, const std::string& entry,
                     SFTPNotes notes, SFTPSubject subject)
{
    const bool answered = isAnswer(sftp);
    const bool ended = markIfLost(sftp, lost);
    if (answered) {
        if (notes == SFTPNotes::All) {
            failBySftpStatus(static_cast<std::uint32_t>(sftp->errnum), sftpErrorText(sftp), entry,
                             subject);
        }
    } else if (ended) {
        fail(FailureCode::ConnectionLost, FailureSource::Transport,
             ssh_get_error_code(sftp->session), transportFailureText(sftp->session), entry);
    } else if (lost) {
        // Somebody else has seen why, and nothing was tried here.
        failForLostSftp(entry);
    } else if (notes == SFTPNotes::All) {
        fail(FailureCode::Protocol, FailureSource::Transport, ssh_get_error_code(sftp->session),
             sftpErrorText(sftp), entry);
    }
}

} // namespace Tarnis
