#include "process/ChannelFailure.h"

#include "handles/SSHFailure.h"

namespace Tarnis {

bool noteChannelFailure(ssh_channel channel, FileSystem::FailureCode otherwise)
{
    ssh_session session = ssh_channel_get_session(channel);
    if (ssh_is_connected(session) != 0 && ssh_channel_is_open(channel) == 0) {
        // What libssh has to say is about something else then.
        return noteConnectionLost("the channel is not open");
    }
    return noteTransportFailure(session, otherwise);
}

} // namespace Tarnis
