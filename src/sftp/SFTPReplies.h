#pragma once

#include "sftp/SFTPRefusal.h"

#include <libssh/sftp.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace Tarnis {

// Replies to requests of which several are under way. To be called under the lock.

/// What whoever has requests under way knows of the replies to come.
struct SFTPReplyStream
{
    /// \param lossMark of the SFTP session; it must outlive this.
    explicit SFTPReplyStream(std::atomic<bool>& lossMark) noexcept
        : lost(&lossMark)
    {}

    /// Set where the replies to come are of no use to anybody: others that wait for one give up.
    std::atomic<bool>* lost;
    /// One came that could not be read, or the connection broke. Nobody can tell to which request
    /// that one belonged, and whoever went on waiting for its reply would wait for ever.
    bool isBroken = false;
    /// Why the last reply that was collected brought nothing, where it did not.
    SFTPRefusal refusal;
};

/// Reads the replies that have arrived into the SFTP session's queue; waits for nothing but the
/// rest of one that has begun. False: one could not be read, or the connection broke.
bool takeArrivalsIn(sftp_file file, SFTPReplyStream& stream) noexcept;

/// Waits for the reply to a read request and copies its data, as sftp_async_read does; the result
/// is that function's. What differs: a reply that has arrived already, while another one was waited
/// for, is taken from there, where sftp_async_read would wait for one more to come; the reply is
/// fetched also when the file is at its end, as it would lie there for ever; and the end of the
/// file leaves the position where the file ended.
///
/// \param size as it was asked for.
/// \param why  is set where a reply that had arrived brings nothing, and else left alone.
int collectRead(sftp_file file, void* data, std::uint32_t size, std::uint32_t id, SFTPRefusal& why);

/// The same, for many bytes: has the reply arrive in the queue first and copies its data from
/// there, where sftp_async_read would copy it twice. The text of a refusal is recorded as the
/// session's last error.
int collectReadDirectly(sftp_file file, void* data, std::uint32_t size, std::uint32_t id,
                        SFTPReplyStream& stream);

/// Waits for the status that answers a request on the file, and has libssh record the text of a bad
/// one as the session's last error; a good one leaves that alone. Neither the file's position nor
/// its end changes. Empty: the reply was no status, or it did not come.
std::optional<std::uint32_t> collectStatus(sftp_file file, std::uint32_t id,
                                           SFTPReplyStream& stream);

/// The same without a text: the session's last error stays as it is. The file need not be open.
std::optional<std::uint32_t> collectStatusAlone(sftp_file file, std::uint32_t id,
                                                SFTPReplyStream& stream) noexcept;

/// Waits for the reply to an extended request and copies what it holds; the session's last error
/// stays as it is. Empty: a status came instead, or nothing.
std::optional<std::string> collectExtendedReply(sftp_file file, std::uint32_t id,
                                                SFTPReplyStream& stream);

} // namespace Tarnis
