#pragma once

#include <libssh/sftp.h>

#include <cstdint>
#include <optional>

namespace Tarnis {

// Replies to requests of which several are under way. To be called under the lock.

/// What whoever has requests under way knows of the replies to come.
struct SFTPReplyStream
{
    /// One came that could not be read, or the connection broke. Nobody can tell to which request
    /// that one belonged, and whoever went on waiting for its reply would wait for ever.
    bool isBroken = false;
};

/// Waits for the reply to a read request and copies its data, as sftp_async_read does; the result
/// is that function's. What differs: a reply that has arrived already, while another one was waited
/// for, is taken from there, where sftp_async_read would wait for one more to come; the reply is
/// fetched also when the file is at its end, as it would lie there for ever; and the end of the
/// file leaves the position where the file ended.
///
/// \param size as it was asked for.
int collectRead(sftp_file file, void* data, std::uint32_t size, std::uint32_t id) noexcept;

/// The same, for many bytes: has the reply arrive in the queue first and copies its data from
/// there, where sftp_async_read would copy it twice. The text of a refusal is recorded as the
/// session's last error.
int collectReadDirectly(sftp_file file, void* data, std::uint32_t size, std::uint32_t id,
                        SFTPReplyStream& stream) noexcept;

/// Waits for the status that answers a request on the file, and has libssh record the text of a bad
/// one as the session's last error; a good one leaves that alone. Neither the file's position nor
/// its end changes. Empty: the reply was no status, or it did not come.
std::optional<std::uint32_t> collectStatus(sftp_file file, std::uint32_t id,
                                           SFTPReplyStream& stream) noexcept;

/// The same without a text: the session's last error stays as it is. The file need not be open.
std::optional<std::uint32_t> collectStatusAlone(sftp_file file, std::uint32_t id,
                                                SFTPReplyStream& stream) noexcept;

} // namespace Tarnis
