#pragma once

#include <Tarnis/Export.h>

#include <cstdint>

struct sftp_session_struct;
struct ssh_channel_struct;
struct ssh_session_struct;

namespace Tarnis {

/// Remembers the blocking mode of a libssh session, optionally sets another one, and restores it on
/// destruction.
///
/// The session is lent and must outlive the guard. One thread at a time may be in libssh with a
/// session, and constructing and destroying a guard counts: hold the session's lock for its whole
/// life. With a null object, or one without a session, the guard does nothing.
class TARNIS_EXPORT SessionBlockingGuard
{
public:
    /// Remembers the mode only.
    explicit SessionBlockingGuard(ssh_session_struct* session);
    explicit SessionBlockingGuard(ssh_channel_struct* channel);
    explicit SessionBlockingGuard(sftp_session_struct* sftp);

    /// Remembers the mode, then sets it: 0 is non-blocking, anything else blocking.
    SessionBlockingGuard(ssh_session_struct* session, int blocking);
    SessionBlockingGuard(ssh_channel_struct* channel, int blocking);
    SessionBlockingGuard(sftp_session_struct* sftp, int blocking);

    SessionBlockingGuard(const SessionBlockingGuard&) = delete;
    SessionBlockingGuard& operator=(const SessionBlockingGuard&) = delete;

    /// Restores the mode. Never throws.
    virtual ~SessionBlockingGuard();

private:
    ssh_session_struct* session_;
    std::int32_t savedBlocking_;
};

} // namespace Tarnis
