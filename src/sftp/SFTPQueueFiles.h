#pragma once

#include "sftp/SFTPQueueCall.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tarnis {

/// A file that the queue has opened.
struct SFTPQueue::OpenFile
{
    std::string path;
    std::string handle;
    Lane lane; ///< That it was opened on: to the others, its handle means nothing.
    /// Of reads whose answers may ask for more. The file is not closed before.
    std::size_t reading = 0;
    std::vector<std::function<void()>> whenRead;

    /// Another handle of the file, that writes of it go through, too.
    struct OtherHandle
    {
        std::string handle;
        Lane lane;
        bool isUsed = false;     ///< Something was written through it.
        bool isRefused = false;  ///< A write was.
        std::size_t writing = 0; ///< Pieces in flight.
    };

    enum class Spread
    {
        Untried,
        Proving,  ///< It is found out whether the path can lead to another file.
        Possible, ///< It cannot: the file may be opened on other lanes as well.
        Over,     ///< Everything goes through the first handle, from now on.
    };

    bool isNew = false; ///< This opening has made it, to be written.
    Spread spread = Spread::Untried;
    std::string onlyPath;    ///< Without a link, once it is possible.
    bool mayOpenMore = true; ///< None was refused.
    std::size_t asking = 0;  ///< Questions and settings that are in flight.
    /// Of other handles, until it is known whether they are used, and closings of those whose lane
    /// others need.
    std::size_t openings = 0;
    std::uint64_t writing = 0; ///< Bytes of the writes in flight.
    std::vector<std::shared_ptr<OtherHandle>> others;
    std::optional<Answer> refusal;   ///< Of a closing: what was written may not have been kept.
    std::vector<RangeWrite*> writes; ///< In flight.
    /// What has to wait until other lanes are through with what was started before.
    std::deque<std::function<void()>> held;

    /// Whether a write may go through any handle: none in flight is for the same bytes.
    bool maySpread(std::uint64_t offset, std::uint64_t size) const;

    /// Whether whatever is sent to the first handle's lane now comes after all that was started.
    bool isInOrder() const noexcept { return openings == 0 && (others.empty() || writes.empty()); }

    /// Does something when all writes that were started before are done, or are before it on the
    /// first handle's lane.
    void inOrder(std::function<void()> next)
    {
        if (spread != Spread::Untried) {
            spread = Spread::Over;
        }
        afterHeld(std::move(next));
    }

    /// The same for what may be done together with those writes.
    void afterHeld(std::function<void()> next, bool isFreeToStart = false)
    {
        if (held.empty() && (isFreeToStart || isInOrder())) {
            next();
        } else {
            held.push_back(std::move(next));
        }
    }

    void goOn()
    {
        while (!held.empty() && isInOrder()) {
            const auto next = std::move(held.front());
            held.pop_front();
            next();
        }
    }

    void beginRead() { ++reading; }

    void endRead()
    {
        if (--reading == 0) {
            for (const auto& next : std::exchange(whenRead, {})) {
                next();
            }
        }
    }

    void afterReads(std::function<void()> next)
    {
        if (reading == 0) {
            next();
        } else {
            whenRead.push_back(std::move(next));
        }
    }
};

/// Writes a range, in pieces that are all in flight together, through all handles of the file.
class SFTPQueue::RangeWrite : public std::enable_shared_from_this<RangeWrite>
{
public:
    RangeWrite(SFTPQueue& queue, std::shared_ptr<OpenFile> file, std::uint64_t offset,
               const char* bytes, std::uint64_t size, std::shared_ptr<Call<>> call);

    void start();

    /// Begins to use another handle, too.
    void share(const std::shared_ptr<OpenFile::OtherHandle>& other);

    bool overlaps(std::uint64_t offset, std::uint64_t size) const noexcept
    {
        return offset < offset_ + size_ && offset_ < offset + size;
    }

private:
    using Other = std::shared_ptr<OpenFile::OtherHandle>;

    /// A part of the range.
    struct Piece
    {
        std::uint64_t from;
        std::uint32_t size;
    };

    void sendNext(const Other& other, std::uint64_t place);
    void send(const Piece& piece, const Other& other);
    void take(const Answer& answer, const Piece& piece, const Other& other);
    void finish();

    SFTPQueue& queue_;
    std::shared_ptr<OpenFile> file_;
    std::uint64_t offset_;
    const char* bytes_;
    std::uint64_t size_;
    std::uint64_t next_ = 0;
    std::size_t inFlight_ = 0;
    std::optional<Answer> failure_;
    std::shared_ptr<Call<>> call_;
};

} // namespace Tarnis
