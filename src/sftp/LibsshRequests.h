#pragma once

#include "handles/LibsshStructures.h"
#include "sftp/SFTPRefusal.h"
#include "sftp/wire/SFTPProtocol.h"

#include <libssh/sftp.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace Tarnis {

SFTPPacketType typeOf(const LibsshReply& reply) noexcept;

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

/// Requests of one caller's own on libssh's SFTP session, of which several may be in flight. To be
/// called under the lock; what of libssh it relies on stands in LibsshStructures.h.
class LibsshRequests
{
public:
    /// \param lost the SFTP session's mark, set where a reply could not be read: those to come are
    ///             of no use to anybody then. It has to outlive this.
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
int receiveRead(sftp_file file, char* data, std::uint32_t size, std::uint32_t number,
                SFTPRefusal& why);

} // namespace Tarnis
