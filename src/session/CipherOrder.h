#pragma once

#include <libssh/libssh.h>

namespace Tarnis {

/// Puts AES-GCM first among the ciphers that the session will propose, in both directions; the
/// others stay as libssh orders them. For a session that has not begun to connect. A libssh that
/// does not let itself be told keeps its own order.
/// False: the proposal could not be made whole, for want of memory.
bool proposeAesGcmFirst(ssh_session session);

} // namespace Tarnis
