#pragma once

#include "sftp/SFTPConnection.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <utility>

namespace Tarnis {

/// One of the connections that a queue spreads its requests over, and what waits for that one.
struct SFTPLane
{
    using Clock = std::chrono::steady_clock;

    /// Something to be sent, in its place among all that waits.
    struct Waiting
    {
        std::uint64_t place;
        std::function<void()> send;
    };

    explicit SFTPLane(std::unique_ptr<SFTPConnection> opening)
        : connection(std::move(opening))
    {}

    // All of these under the lock.

    bool isReady() const noexcept { return connection->phase() == SFTPConnection::Phase::Ready; }

    /// Whether another request pays here, of the files that are open here or of any. One that is
    /// over takes all there is, and fails it.
    bool hasRoom() const noexcept { return hasRoomAmong(mostRequests); }

    bool hasRoomForAny() const noexcept { return hasRoomAmong(fairShare); }

    bool hasRoomAmong(std::size_t most) const noexcept
    {
        return connection->isOver() ||
               (isReady() && connection->inFlight() < most && connection->unsent() < unsentLimit);
    }

    /// Whether nothing would be missed if it were closed.
    bool isIdle() const noexcept
    {
        return handles == 0 && waiting.empty() &&
               (connection->isOver() || connection->inFlight() == 0);
    }

    // Enough for one large file on a long line; more only waits over there.
    static constexpr std::size_t mostRequests = 224;
    // With so many in flight another lane is worth it for what any may take.
    static constexpr std::size_t fairShare = 128;
    // What waits for the server to take it is a copy of what is written.
    static constexpr std::size_t mostUnsent = std::size_t{2} << 20U;
    // Where several lanes share the writes of one file, none is to take what another could send.
    static constexpr std::size_t mostUnsentOfShared = std::size_t{256} << 10U;

    std::unique_ptr<SFTPConnection> connection;
    std::deque<Waiting> waiting; ///< For this lane alone, as it has the file.
    std::size_t handles = 0;     ///< Files and directories that are open here, or being opened.
    std::uint64_t bytes = 0;     ///< Of the ranges that are being read or written here.
    Clock::time_point lastUsed = Clock::now();
    std::size_t unsentLimit = mostUnsent;
    bool isLeaving = false; ///< It is given back as soon as nothing of it is in use.
};

} // namespace Tarnis
