#pragma once

#include <libssh/libssh.h>

namespace Tarnis {

// libssh's requests on a channel, refused where libssh would do harm: it sends them whatever state
// the channel is in, to a channel number that is 0 before the channel was opened and may belong to
// another channel once it was closed. A signal would end somebody else's command. Each returns
// libssh's status, SSH_ERROR when refused. To be called under the session's lock.

/// Sends the command line, or, once it was sent, only asks for the answer. SSH_EOF where the server
/// closes the channel instead of answering, of which libssh's last error says nothing.
/// \param sent whether an earlier call answered SSH_AGAIN. The channel may be closed again by then:
///             another thread may have taken in the answer together with the command's end.
int requestExec(ssh_channel channel, const char* line, bool sent);

/// The same for the SFTP subsystem. libssh waits for the answer alone (0.10.6, 0.11.5 and 0.12.2):
/// a wait in blocking mode would last for ever where the server closes the channel instead. To be
/// called in non-blocking mode.
int requestSftp(ssh_channel channel, bool sent);

/// What to say of it.
constexpr const char* closedInsteadOfAnswering =
    "the server closed the channel instead of answering";

/// Tells the other side that no more input comes.
int requestEndOfFile(ssh_channel channel);

/// Sends a signal, named without "SIG".
int requestSignal(ssh_channel channel, const char* name);

} // namespace Tarnis
