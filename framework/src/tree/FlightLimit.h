#pragma once

#include <chrono>
#include <cstdint>

namespace FileSystem {

/// Bytes that one operation moves where many are in flight. One request of the SFTP queue: a little
/// more would be two, and of requests it has no more in flight for that.
inline constexpr std::uint64_t sentPieceSize = 229'376;

/// How many bytes a copy may have in flight: about what the way takes in two seconds. Fewer would
/// wait for answers on a long way, and more would make whoever stops the copy wait on a slow one.
class FlightLimit
{
public:
    /// For the memory that it takes.
    static constexpr std::uint64_t most = std::uint64_t{48} << 20U;

    /// \param bytesDone since the copy began.
    void note(std::uint64_t bytesDone);

    std::uint64_t bytes() const noexcept { return bytes_; }

private:
    using Clock = std::chrono::steady_clock;

    static constexpr std::uint64_t fewest = std::uint64_t{1} << 20U;

    std::uint64_t bytes_ = 2 * fewest;
    std::uint64_t doneBefore_ = 0;
    Clock::time_point before_ = Clock::now();
};

} // namespace FileSystem
