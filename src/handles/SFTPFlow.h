#pragma once

#include <libssh/sftp.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Tarnis {

/// What the ranges of all open files of one SFTP session have in flight, and how much that may be.
///
/// libssh waits for room in the server's window with the lock held, and takes in no more than one
/// window of replies meanwhile, while a server that cannot get rid of its replies reads no further
/// request: both would wait for ever. So what is asked for always fits into the window that libssh
/// keeps open, whoever waits for whom, and what is sent goes only where there is room. In both
/// directions everybody has an equal share, so that nobody is kept out.
class SFTPFlow
{
public:
    enum class Direction : std::size_t
    {
        Reads,
        Writes,
    };

    /// What every server gives, and takes, in one request.
    static constexpr std::uint32_t largestPiece = 32'768;

    /// One transfer and what it has in flight, for as long as it lives. The flow has to outlive it.
    class Share
    {
    public:
        Share(SFTPFlow& flow, Direction direction) noexcept;
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;
        ~Share();

        /// How many of `wanted` bytes can be asked for, or sent, at once in one request that takes
        /// `overhead` bytes beside the data; 0: none yet. Waits for nothing. Whoever has nothing in
        /// flight gets something once the others are answered. To be called under the lock, and
        /// add() with what was asked for under the same one.
        std::uint32_t allowed(sftp_session sftp, std::uint32_t wanted, std::uint32_t overhead);

        void add(std::uint32_t size) noexcept;
        void remove(std::uint32_t size) noexcept;

    private:
        SFTPFlow& flow_;
        Direction direction_;
        std::uint64_t inFlight_ = 0;
    };

    /// Whether so much has been asked for since this last said yes, and is to come, that libssh's
    /// window may become too small for it. Under the lock.
    bool mayNarrow() noexcept;

    /// What one request may ask for, and what it may write, for a server that has told less than
    /// the largest piece; 0: it has no such limit. Under the lock, as the next.
    void setLimits(std::uint64_t read, std::uint64_t write) noexcept;

    /// Whether they were set.
    bool areLimitsKnown() const noexcept { return areLimitsKnown_; }

private:
    struct Way
    {
        std::atomic<std::uint64_t> inFlight{0};
        std::atomic<std::uint32_t> transfers{0};
        std::uint32_t largest = largestPiece; ///< Of one request.
    };

    Way& way(Direction direction) noexcept { return ways_[static_cast<std::size_t>(direction)]; }

    std::uint32_t reserve() const noexcept;
    std::uint64_t most(Direction direction) const noexcept;
    std::uint32_t sendable(std::uint32_t window, std::uint32_t size, std::uint32_t overhead,
                           bool hasNone) const noexcept;

    static constexpr std::uint64_t widenEvery = std::uint64_t{1} << 20U;

    std::array<Way, 2> ways_;
    bool areLimitsKnown_ = false;
    std::uint32_t largestWindow_ = 0;
    std::uint64_t askedFor_ = widenEvery; ///< Since it was widened.
};

} // namespace Tarnis
