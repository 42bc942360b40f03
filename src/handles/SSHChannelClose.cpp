#include "handles/SSHChannelClose.h"

namespace Tarnis {

void queueChannelClose(ssh_channel channel) noexcept
{
    if (channel == nullptr || ssh_channel_is_open(channel) != 1) {
        return;
    }
    if (ssh_channel_close(channel) == SSH_AGAIN) {
        // With output still queued, the first call only queues the end of file.
        static_cast<void>(ssh_channel_close(channel));
    }
}

} // namespace Tarnis
