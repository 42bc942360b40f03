#include "process/ChannelRequests.h"

namespace Tarnis {

namespace {

bool isOpen(ssh_channel channel)
{
    return ssh_channel_is_open(channel) == 1;
}

/// Whether bytes could still be sent. libssh says that a channel is open as long as output lies
/// unread, even once the server has closed it, but does not write to it any more.
bool takesInput(ssh_channel channel)
{
    return isOpen(channel) && ssh_channel_write(channel, "", 0) >= 0;
}

} // namespace

int requestExec(ssh_channel channel, const char* line, bool sent)
{
    if (!sent && !isOpen(channel)) {
        return SSH_EOF;
    }
    const int result = ssh_channel_request_exec(channel, line);
    return result == SSH_AGAIN && !isOpen(channel) ? SSH_EOF : result;
}

int requestSftp(ssh_channel channel, bool sent)
{
    if (!sent && !isOpen(channel)) {
        return SSH_EOF;
    }
    const int result = ssh_channel_request_sftp(channel);
    return result == SSH_AGAIN && !takesInput(channel) ? SSH_EOF : result;
}

int requestEndOfFile(ssh_channel channel)
{
    return isOpen(channel) ? ssh_channel_send_eof(channel) : SSH_ERROR;
}

int requestSignal(ssh_channel channel, const char* name)
{
    return isOpen(channel) ? ssh_channel_request_send_signal(channel, name) : SSH_ERROR;
}

} // namespace Tarnis
