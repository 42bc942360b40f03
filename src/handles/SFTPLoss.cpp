#include "handles/SFTPLoss.h"

#include "handles/LibsshStructures.h"

#include <Tarnis/SessionBlockingGuard.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace Tarnis {

namespace {

/// Whether the channel takes no bytes any more, though libssh says that it is open. To be asked in
/// non-blocking mode: a channel that takes bytes sends what waits to leave.
bool isClosedToWriting(sftp_session sftp) noexcept
{
    const SessionBlockingGuard guard(sftp, 0);
    return ssh_channel_write(channelOf(sftp), "", 0) < 0;
}

} // namespace

// The server has closed the channel. As long as replies from before that lie unread libssh (0.10.6,
// 0.11.5 and 0.12.2) says that the channel is open, refuses requests with this text, and gives some
// of them a status as if the server had answered. The text alone proves nothing: libssh keeps one
// for all channels of the session, until the next failure that has a text. So the channel is tried.
bool isUnsendable(sftp_session sftp) noexcept
{
    if (statusOf(sftp) == SSH_FX_EOF || ssh_get_error_code(sessionOf(sftp)) != SSH_REQUEST_DENIED) {
        // The end of a file or of a directory leaves what an earlier call has said.
        return false;
    }
    const char* const text = ssh_get_error(sessionOf(sftp));
    return text != nullptr && std::string_view(text) == "Remote channel is closed" &&
           isClosedToWriting(sftp);
}

bool isOutOfStep(ssh_session errors, int status) noexcept
{
    if (status == SSH_FX_OK || ssh_get_error_code(errors) != SSH_FATAL) {
        return false;
    }
    const char* const error = ssh_get_error(errors);
    const std::string_view text(error != nullptr ? error : "");
    constexpr std::array beginnings{"Invalid sftp packet size!", "Unknown packet type",
                                    "Invalid packet"};
    return std::any_of(beginnings.begin(), beginnings.end(), [text](std::string_view beginning) {
        return text.substr(0, beginning.size()) == beginning;
    });
}

bool markIfLost(sftp_session sftp, std::atomic<bool>& lost) noexcept
{
    return markIfLost(sftp, lost, sessionOf(sftp));
}

bool markIfLost(sftp_session sftp, std::atomic<bool>& lost, ssh_session errors) noexcept
{
    // A channel counts as closed when its connection has gone, too; one whose server program has
    // ended tells so itself while the connection lives on. Replies that have arrived are read
    // before a channel counts as being at its end.
    const bool isLost = ssh_channel_is_closed(channelOf(sftp)) != 0 ||
                        ssh_channel_is_eof(channelOf(sftp)) != 0 || isUnsendable(sftp) ||
                        isOutOfStep(errors, statusOf(sftp));
    if (isLost) {
        lost = true;
    }
    return isLost;
}

} // namespace Tarnis
