#pragma once

#include <libssh/sftp.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <unordered_map>

namespace Tarnis {

/// What the bulk transfers of one SFTP session have on its channel, and how much the server takes.
/// They share one window in each direction: whoever fills one of them alone may stop all others, as
/// a server that cannot send its replies need not read any further request.
///
/// To be used under the session's lock.
class SFTPFlow
{
public:
    /// What every server takes in one write.
    static constexpr std::uint32_t ordinaryWrite = 32'768;
    /// A server may refuse more, though larger ones are common.
    static constexpr std::uint32_t largestWrite = 256'000;

    /// What may arrive before the receive window is looked after again.
    static constexpr std::uint64_t arrivalStep = std::uint64_t{1} << 20U;

    /// A request was sent whose reply will bring so many bytes.
    void addRead(std::uint32_t id, std::uint32_t length);

    /// The reply was taken, or will not come.
    void removeRead(std::uint32_t id);

    /// How many bytes the server has still to send. What has arrived in the SFTP session's queue is
    /// not counted, whoever took it in.
    std::uint64_t bytesToCome(sftp_session sftp);

    /// One who has nothing on its way and waits for its turn to ask; any thread, without the lock.
    class Waiting
    {
    public:
        explicit Waiting(SFTPFlow& flow) noexcept
            : flow_(flow)
        {
            ++flow_.waiting_;
        }

        Waiting(const Waiting&) = delete;
        Waiting& operator=(const Waiting&) = delete;

        ~Waiting() { --flow_.waiting_; }

    private:
        SFTPFlow& flow_;
    };

    bool hasWaiting() const noexcept { return waiting_ > 0; }

    /// Whether so much has arrived since the last call that said yes, or since the start, that the
    /// receive window may have become small.
    bool takeArrived() noexcept;

    /// How many bytes may be sent at once. What is left of the server's window is kept for small
    /// requests: libssh sends those without asking here, and waits for room with the lock held.
    std::uint32_t room(sftp_session sftp);

    /// The most that room() will ever be.
    std::uint32_t largestRoom() const noexcept { return largestWindow_ - reserve(); }

    /// The room that there will be again once the server has read what was sent. A server need not
    /// open its window before half of it is used up.
    std::uint32_t roomToExpect() const noexcept { return largestWindow_ / 2 - reserve(); }

    /// Whether a small request can be sent without waiting for room.
    static bool hasRoomForSmallRequest(sftp_session sftp);

    /// What the server says that it takes in one write, once it was asked; empty: it says nothing.
    void setWriteLimit(std::optional<std::uint64_t> limit);

    bool knowsWriteLimit() const noexcept { return knowsWriteLimit_; }

    /// The largest write to send.
    std::uint32_t writeSize() const noexcept { return writeSize_; }

    /// Whether a write of this size is known to be taken.
    bool isTaken(std::uint32_t size) const noexcept { return size <= takenWrite_; }

    /// A write of this size was taken.
    void noteTaken(std::uint32_t size) noexcept;

    /// Larger writes than those that every server takes are refused for their size.
    void noteLargerRefused() noexcept;

private:
    std::uint32_t reserve() const noexcept;

    std::unordered_map<std::uint32_t, std::uint32_t> reads_;
    std::uint64_t toCome_ = 0;
    std::optional<std::uint64_t> arrived_; ///< Empty: since the start.
    std::atomic<int> waiting_{0};
    std::uint32_t largestWindow_ = 0;
    bool knowsWriteLimit_ = false;
    std::uint32_t writeSize_ = largestWrite;
    std::uint32_t takenWrite_ = 0;
};

} // namespace Tarnis
