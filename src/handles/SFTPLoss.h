#pragma once

#include <libssh/libssh.h>
#include <libssh/sftp.h>

#include <atomic>

namespace Tarnis {

// Whether an SFTP session is over. To be called under its lock, after a call that failed, at once.

/// Whether the call failed because a packet could not be read, in the words of libssh (0.10.6,
/// 0.11.5 and 0.12.2), which throws it away: nobody can tell whose reply it was, nor, where it was
/// its length, where the next one begins. libssh's text may be old, so that the call must have set
/// a status with it, and have begun without one.
/// \param errors the session that took the error down.
bool isOutOfStep(ssh_session errors, int status) noexcept;

/// Whether the call failed because its request could not be sent any more.
bool isUnsendable(sftp_session sftp) noexcept;

/// Looks whether the SFTP session's channel or connection has come to its end, or a packet could
/// not be read, and marks it then.
bool markIfLost(sftp_session sftp, std::atomic<bool>& lost) noexcept;

/// The same where libssh was shown another session for the call, which took its errors down.
bool markIfLost(sftp_session sftp, std::atomic<bool>& lost, ssh_session errors) noexcept;

} // namespace Tarnis
