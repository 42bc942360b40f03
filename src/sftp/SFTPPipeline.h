#pragma once

#include "handles/SFTPFlow.h"
#include "handles/SSHHandleSFTPSessionFile.h"
#include "handles/SSHSocketWait.h"
#include "sftp/LibsshRequests.h"
#include "sftp/SFTPReceiveWindow.h"
#include "sftp/wire/SFTPPacketWriter.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace Tarnis {

/// A part of a range of bytes that one request asks for or writes.
struct SFTPPiece
{
    std::size_t range;
    std::uint64_t from; ///< Of the range.
    std::uint32_t size;
};

/// What a pipeline moves, piece by piece.
class SFTPPieces
{
public:
    SFTPPieces() = default;
    SFTPPieces(const SFTPPieces&) = delete;
    SFTPPieces& operator=(const SFTPPieces&) = delete;
    virtual ~SFTPPieces() = default;

    /// What is to be sent next. Empty: nothing is left as far as is known.
    virtual std::optional<SFTPPiece> next() = 0;

    /// What next() said was sent, or as many bytes of its beginning; nobody waits for it yet.
    virtual void advance(std::uint32_t size) = 0;

    virtual void encode(SFTPPacketWriter& writer, std::uint32_t number, std::string_view handle,
                        const SFTPPiece& piece) const = 0;

    /// Whether a piece is not to be sent before another one is answered.
    virtual bool hasToFollow(const SFTPPiece& piece, const SFTPPiece& other) const = 0;

    /// Takes an answer. Why it is a failure, where it is one.
    virtual std::optional<SFTPRefusal> take(const SFTPPiece& piece, const LibsshReply& reply) = 0;

    /// A piece has failed: next() leaves out what is of no use without it, some of this piece at
    /// least.
    virtual void fail(const SFTPPiece& piece) = 0;
};

/// Requests on an open file, of which several are in flight.
///
/// Blocks on the server and lets others in between two requests, and while there is no room for
/// one. Throws handle_fatal_error("invalid") when the handle is invalid, unless the SFTP session is
/// lost: that is a failure. The first failure is noted.
class SFTPPipeline
{
public:
    /// Both have to outlive it.
    SFTPPipeline(SSHHandleSFTPSessionFile& file, const std::string& path,
                 SFTPFlow::Direction direction);
    SFTPPipeline(const SFTPPipeline&) = delete;
    SFTPPipeline& operator=(const SFTPPipeline&) = delete;

    /// Waits for what is in flight after an exception, so that no answer is left for others to
    /// find.
    ~SFTPPipeline();

    /// Moves everything. False: a failure. Empty: the libssh at hand cannot do it, and nothing was
    /// sent.
    std::optional<bool> run(SFTPPieces& pieces);

private:
    struct Request
    {
        std::uint32_t number;
        SFTPPiece piece;
    };

    enum class Attempt
    {
        Sent,
        TooEarly, ///< The server has to read, or to send, something else first.
        Failed,
        NotAble,
    };

    bool mayFollow(const SFTPPieces& pieces, const SFTPPiece& piece) const;
    Attempt attempt(SFTPPieces& pieces, const SFTPPiece& piece);
    Attempt sendNow(sftp_file file, SFTPPieces& pieces, const SFTPPiece& piece);
    Attempt noteUnsent(sftp_session sftp);
    void learnLimits(sftp_session sftp);
    std::uint32_t allowed(sftp_session sftp, const SFTPPiece& piece, std::size_t handleSize);
    void waitOrCollect(SFTPPieces& pieces);
    void receiveOldest(SFTPPieces& pieces);
    std::optional<bool> takeAnswer(SFTPPieces& pieces, const Request& request);
    bool collect(sftp_file file, SFTPPieces& pieces, const Request& request);
    void noteLost();
    void giveUp(SFTPPieces& pieces);

    SSHHandleSFTPSessionFile& file_;
    const std::string& path_;
    const SFTPFlow::Direction direction_;
    SFTPFlow::Share share_;
    LibsshRequests requests_;
    SFTPReceiveWindow receiveWindow_;
    SSHSocketWait socket_;
    std::deque<Request> inFlight_;
    std::string packet_;
    bool hasSent_ = false;
    bool hasFailed_ = false;
};

} // namespace Tarnis
