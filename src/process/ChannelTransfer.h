#pragma once

#include <Tarnis/SSHChannelTransfer.h>

#include <libssh/libssh.h>

#include <cstddef>

namespace Tarnis {

// One step of a transfer that tells the truth about what was moved. Neither waits. To be called
// under the session's lock.

/// Reads what has arrived on one of a channel's two streams.
SSHChannelTransfer readArrived(ssh_channel channel, char* buffer, std::size_t size, bool isStderr);

/// Hands on as much input as the peer's window and the connection take.
SSHChannelTransfer writeAccepted(ssh_channel channel, const char* data, std::size_t size);

} // namespace Tarnis
