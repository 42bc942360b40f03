#pragma once

#include "sftp/SFTPRefusal.h"
#include "sftp/wire/SFTPProtocol.h"

#include <libssh/sftp.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace Tarnis {

// What reaches into libssh's structures for more than its functions give: requests of our own on
// libssh's SFTP session, and the replies to them. All of it is to be called under the lock. What it
// relies on was read in the sources of 0.10.6, 0.11.5 and 0.12.2 and is the same in all three,
// except where it says otherwise. Where the names of tests stand, those run with the real libssh
// and fail where it no longer holds.
//
// 1. A number. sftp_async_read_begin() takes the next number before it sends, and leaves the file's
//    position alone where it cannot send. Without a channel it cannot, and sets nothing but the
//    status. From 0.11 on a reply with a number that libssh has not taken itself is an error, so
//    that counting `id_counter` up would not do. TransferTest.ReadsAreUnderWayTogether and
//    WritesAreUnderWayTogether: without a number, ranges are moved one after the other.
// 2. Replies that have come. sftp_async_read() reads them into the queue while it waits for the one
//    that it was asked for, and gives up with SSH_AGAIN where nothing more has come and it must not
//    block. So it is asked to wait for number 0, which no request has: they count from 1. Of the
//    file it uses nothing but the SFTP session, `eof` and `nonblocking`, so that a structure of our
//    own does, open or not. TransferTest.WritesAreUnderWayTogether, FlowTest.
// 3. The queue. `queue` is a list with one entry for each reply, in the order in which they came;
//    an entry and its message were made with malloc(), and the message's payload holds what follows
//    the number. SftpReplies (over the real list) and, with the real libssh, ReadBehaviourTest.
// 4. Replies that came out of turn. Up to 0.11.5 sftp_async_read() reads one more reply before it
//    looks into the queue, for ever where none is to come; from 0.12 on it looks first. The end of
//    the file in a reply leaves the position behind what was asked for.
//    ReadBehaviourTest.APlainReadOfManyPackagesEnds.
// 5. A rename that replaces nothing. From 0.11 on sftp_rename() sends posix-rename@openssh.com
// where
//    sftp_extension_supported() says that the server offers it, and that says no while the SFTP
//    session has no list of extensions: the member `ext`, which sftp_init() alone fills, and which
//    nothing else looks at during the call. RenameRequestTest.

/// A reply that has arrived. Owns what libssh made of it.
class LibsshReply
{
public:
    explicit LibsshReply(sftp_message message) noexcept
        : message_(message)
    {}

    SFTPPacketType type() const noexcept;

    /// What follows the request's number.
    std::string_view fields() const noexcept;

private:
    struct Deleter
    {
        void operator()(sftp_message message) const noexcept;
    };

    std::unique_ptr<sftp_message_struct, Deleter> message_;
};

/// What the reply to a read brings.
struct SFTPReadOutcome
{
    std::uint32_t count = 0;
    bool isEnd = false; ///< It stands at the end of the file, or beyond it.
    std::optional<SFTPRefusal> refusal;
};

/// Copies the data of a reply, which has been asked for `size` bytes.
SFTPReadOutcome takeData(const LibsshReply& reply, char* data, std::uint32_t size);

/// Why a reply that should say "ok" does not; empty where it does.
std::optional<SFTPRefusal> refusalIn(const LibsshReply& reply);

/// Requests of one caller's on an SFTP session, of which several may be in flight.
class LibsshRequests
{
public:
    /// \param lost the SFTP session's mark, set where the replies to come are of no use to anybody;
    ///             it has to outlive this.
    explicit LibsshRequests(std::atomic<bool>& lost);

    /// A number for the next request, which has to be sent then. Empty: the libssh at hand gives
    /// none.
    std::optional<std::uint32_t> takeNumber(sftp_session sftp) noexcept;

    /// Sends a request and does not wait for its reply. Waits with the lock held where the server's
    /// window has no room for it. False: it could not be sent.
    static bool send(sftp_session sftp, std::string_view request) noexcept;

    /// Reads the replies that have arrived, for whomever they are. Waits for nothing but the rest
    /// of one that has begun. False: one could not be read, or the connection broke.
    bool takeIn(sftp_session sftp) noexcept;

    /// Waits for a reply. Empty: it will not come.
    std::optional<LibsshReply> await(sftp_session sftp, std::uint32_t number) noexcept;

    /// Whether a reply could not be read, or the connection broke. Nobody can tell whose it was,
    /// and whoever went on waiting for it would wait for ever: no more is waited for.
    bool isBroken() const noexcept { return isBroken_; }

private:
    struct StringDeleter
    {
        void operator()(ssh_string text) const noexcept { ssh_string_free(text); }
    };

    void noteReadable(sftp_session sftp, bool isReadable) noexcept;

    std::unique_ptr<ssh_string_struct, StringDeleter> noHandle_;
    std::atomic<bool>& lost_;
    bool isBroken_ = false;
};

/// Waits for the reply to a read request of libssh's and copies its data, as sftp_async_read does;
/// the result is that function's. What differs: a reply that has arrived already is taken from the
/// queue; it is fetched also when the file is at its end, as it would lie there for ever; and the
/// end of the file leaves the position where the file ended.
///
/// \param size as it was asked for.
/// \param why  is set where a reply that had arrived brings nothing, and else left alone.
int collectRead(sftp_file file, char* data, std::uint32_t size, std::uint32_t number,
                SFTPRefusal& why);

/// sftp_rename, but always with the protocol's own request, which does not replace what stands at
/// the new path (as most servers take it). Result as sftp_rename's.
int renamePlainly(sftp_session sftp, const char* path, const char* newPath) noexcept;

} // namespace Tarnis
