#pragma once

#include <libssh/libssh.h>

namespace Tarnis {

/// Queues the close of a channel that is open, without waiting for the queue to leave: a server
/// that has stopped reading would never let it. The session must be in non-blocking mode. Null is
/// ignored.
void queueChannelClose(ssh_channel channel) noexcept;

} // namespace Tarnis
