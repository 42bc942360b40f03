#include "sftp/SFTPRanges.h"

#include "sftp/SFTPPipeline.h"

#include <algorithm>
#include <deque>

namespace Tarnis {

using FileSystem::StorageSystemReadRange;
using FileSystem::StorageSystemReadResult;
using FileSystem::StorageSystemWriteRange;

namespace {

using Status = StorageSystemReadResult::Status;

std::uint32_t pieceOf(std::uint64_t left) noexcept
{
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(left, SFTPFlow::largestPiece));
}

/// What is left out by a short answer is asked for again, ahead of everything else. Each range ends
/// at the first byte that is missing, whatever came from behind it.
class PiecesToRead final : public SFTPPieces
{
public:
    explicit PiecesToRead(std::vector<StorageSystemReadRange>& ranges)
        : ranges_(ranges)
    {
        results_.reserve(ranges.size());
        for (const auto& range : ranges) {
            results_.push_back({range.size, Status::Complete});
        }
    }

    /// Once everything is answered.
    void tellResults()
    {
        for (std::size_t index = 0; index < ranges_.size(); ++index) {
            ranges_[index].result = results_[index];
        }
    }

    std::optional<SFTPPiece> next() override
    {
        while (!missing_.empty() && isBehindTheEnd(missing_.front())) {
            missing_.pop_front();
        }
        if (!missing_.empty()) {
            return missing_.front();
        }
        while (range_ < ranges_.size() && from_ >= results_[range_].count) {
            ++range_;
            from_ = 0;
        }
        return range_ < ranges_.size()
                   ? std::optional(
                         SFTPPiece{range_, from_, pieceOf(results_[range_].count - from_)})
                   : std::nullopt;
    }

    void advance(std::uint32_t size) override
    {
        if (missing_.empty()) {
            from_ += size;
            return;
        }
        SFTPPiece& rest = missing_.front();
        rest.from += size;
        rest.size -= size;
        if (rest.size == 0) {
            missing_.pop_front();
        }
    }

    void encode(SFTPPacketWriter& writer, std::uint32_t number, std::string_view handle,
                const SFTPPiece& piece) const override
    {
        writer.read(number, handle, ranges_[piece.range].offset + piece.from, piece.size);
    }

    bool hasToFollow(const SFTPPiece& /*piece*/, const SFTPPiece& /*other*/) const override
    {
        return false;
    }

    std::optional<SFTPRefusal> take(const SFTPPiece& piece, const LibsshReply& reply) override
    {
        char* const buffer = ranges_[piece.range].buffer + piece.from;
        const SFTPReadOutcome outcome = takeData(reply, buffer, piece.size);
        if (outcome.isEnd) {
            end(piece, Status::EndOfFile);
        } else if (!outcome.refusal && outcome.count == 0) {
            // It would be asked for again for ever.
            return SFTPRefusal{std::nullopt, "the server sent no bytes"};
        } else if (!outcome.refusal && outcome.count < piece.size) {
            missing_.push_back(
                {piece.range, piece.from + outcome.count, piece.size - outcome.count});
        }
        return outcome.refusal;
    }

    void fail(const SFTPPiece& piece) override { end(piece, Status::Error); }

private:
    bool isBehindTheEnd(const SFTPPiece& piece) const
    {
        return piece.from >= results_[piece.range].count;
    }

    /// The range is of use up to this piece at most.
    void end(const SFTPPiece& piece, Status status)
    {
        if (!isBehindTheEnd(piece)) {
            results_[piece.range] = {piece.from, status};
        }
    }

    std::vector<StorageSystemReadRange>& ranges_;
    std::vector<StorageSystemReadResult> results_;
    std::deque<SFTPPiece> missing_;
    std::size_t range_ = 0;
    std::uint64_t from_ = 0;
};

/// After a failure nothing more is written.
class PiecesToWrite final : public SFTPPieces
{
public:
    explicit PiecesToWrite(const std::vector<StorageSystemWriteRange>& ranges)
        : ranges_(ranges)
    {}

    std::optional<SFTPPiece> next() override
    {
        while (range_ < ranges_.size() && from_ == ranges_[range_].size) {
            ++range_;
            from_ = 0;
        }
        return range_ < ranges_.size()
                   ? std::optional(SFTPPiece{range_, from_, pieceOf(ranges_[range_].size - from_)})
                   : std::nullopt;
    }

    void advance(std::uint32_t size) override { from_ += size; }

    void encode(SFTPPacketWriter& writer, std::uint32_t number, std::string_view handle,
                const SFTPPiece& piece) const override
    {
        const char* const bytes = ranges_[piece.range].bytes + piece.from;
        writer.write(number, handle, placeOf(piece), {bytes, piece.size});
    }

    /// A server may work on requests in any order.
    bool hasToFollow(const SFTPPiece& piece, const SFTPPiece& other) const override
    {
        return placeOf(piece) < placeOf(other) + other.size &&
               placeOf(other) < placeOf(piece) + piece.size;
    }

    std::optional<SFTPRefusal> take(const SFTPPiece& /*piece*/, const LibsshReply& reply) override
    {
        return refusalIn(reply);
    }

    void fail(const SFTPPiece& /*piece*/) override { range_ = ranges_.size(); }

private:
    std::uint64_t placeOf(const SFTPPiece& piece) const
    {
        return ranges_[piece.range].offset + piece.from;
    }

    const std::vector<StorageSystemWriteRange>& ranges_;
    std::size_t range_ = 0;
    std::uint64_t from_ = 0;
};

} // namespace

std::optional<bool> readRanges(SSHHandleSFTPSessionFile& file, const std::string& path,
                               std::vector<StorageSystemReadRange>& ranges)
{
    PiecesToRead pieces(ranges);
    const auto done = SFTPPipeline(file, path, SFTPFlow::Direction::Reads).run(pieces);
    if (done) {
        pieces.tellResults();
    }
    return done;
}

std::optional<bool> writeRanges(SSHHandleSFTPSessionFile& file, const std::string& path,
                                const std::vector<StorageSystemWriteRange>& ranges)
{
    PiecesToWrite pieces(ranges);
    return SFTPPipeline(file, path, SFTPFlow::Direction::Writes).run(pieces);
}

} // namespace Tarnis
