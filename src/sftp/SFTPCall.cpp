#include "sftp/SFTPCall.h"

#include "handles/SSHFailure.h"

#include <string_view>
#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::FailureSource;

namespace {

/// Whether the last failure of a call is an answer of the server's. What libssh finds wrong by
/// itself gets a status too, but is fatal to it.
bool isAnswer(sftp_session sftp) noexcept
{
    return statusOf(sftp) > SSH_FX_EOF &&
           ssh_get_error_code(sessionOf(sftp)) == SSH_REQUEST_DENIED && !isUnsendable(sftp);
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

std::string sftpErrorText(sftp_session sftp)
{
    const char* const error = ssh_get_error(sessionOf(sftp));
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
            failBySftpStatus(static_cast<std::uint32_t>(statusOf(sftp)), sftpErrorText(sftp), entry,
                             subject);
        }
    } else if (ended) {
        fail(FailureCode::ConnectionLost, FailureSource::Transport,
             ssh_get_error_code(sessionOf(sftp)), transportFailureText(sessionOf(sftp)), entry);
    } else if (lost) {
        // Another call has noticed the loss before; nothing was sent here.
        failForLostSftp(entry);
    } else if (notes == SFTPNotes::All) {
        fail(FailureCode::Protocol, FailureSource::Transport, ssh_get_error_code(sessionOf(sftp)),
             sftpErrorText(sftp), entry);
    }
}

} // namespace Tarnis
