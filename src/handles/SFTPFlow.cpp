#include "handles/SFTPFlow.h"

#include "handles/LibsshStructures.h"

#include <algorithm>

namespace Tarnis {

namespace {

// Fits, with what surrounds it, into the part of the receive window that libssh keeps open at all
// times: 1 MiB from 0.11 on. 0.10 keeps 640,000 bytes; there the window is widened in time.
constexpr std::uint64_t mostToCome = std::uint64_t{30} * SFTPFlow::largestPiece;
constexpr std::uint64_t mostToComeUnwidened = std::uint64_t{16} * SFTPFlow::largestPiece;
constexpr std::uint64_t mostToSend = std::uint64_t{64} * SFTPFlow::largestPiece;
// Less is not worth a reply of its own.
constexpr std::uint32_t smallestPiece = 4'096;
// What is left of the server's window for small requests: libssh sends those without asking here.
constexpr std::uint32_t mostReserved = 65'536;
constexpr std::uint32_t smallRequest = 1'024;

} // namespace

SFTPFlow::Share::Share(SFTPFlow& flow, Direction direction) noexcept
    : flow_(flow)
    , direction_(direction)
{
    ++flow_.way(direction_).transfers;
}

SFTPFlow::Share::~Share()
{
    Way& way = flow_.way(direction_);
    way.inFlight -= inFlight_;
    --way.transfers;
}

std::uint32_t SFTPFlow::Share::allowed(sftp_session sftp, std::uint32_t wanted,
                                       std::uint32_t overhead)
{
    const std::uint32_t window = ssh_channel_window_size(channelOf(sftp));
    flow_.largestWindow_ = std::max(flow_.largestWindow_, window);
    const std::uint64_t most = flow_.most(direction_);
    const Way& way = flow_.way(direction_);
    const std::uint64_t share = std::max<std::uint64_t>(most / way.transfers, smallestPiece);
    const auto size =
        static_cast<std::uint32_t>(std::min<std::uint64_t>({wanted, share, way.largest}));
    if (inFlight_ + size > share || way.inFlight + size > most) {
        return 0;
    }
    if (direction_ == Direction::Reads) {
        return window >= smallRequest ? size : 0;
    }
    return flow_.sendable(window, size, overhead, inFlight_ == 0);
}

void SFTPFlow::Share::add(std::uint32_t size) noexcept
{
    inFlight_ += size;
    flow_.way(direction_).inFlight += size;
    flow_.askedFor_ += direction_ == Direction::Reads ? size : 0;
}

void SFTPFlow::Share::remove(std::uint32_t size) noexcept
{
    inFlight_ -= size;
    flow_.way(direction_).inFlight -= size;
}

bool SFTPFlow::mayNarrow() noexcept
{
    if (askedFor_ < widenEvery || way(Direction::Reads).inFlight < mostToComeUnwidened) {
        return false;
    }
    askedFor_ = 0;
    return true;
}

void SFTPFlow::setLimits(std::uint64_t read, std::uint64_t write) noexcept
{
    const auto within = [](std::uint64_t most) {
        return most == 0 ? largestPiece
                         : static_cast<std::uint32_t>(std::min<std::uint64_t>(most, largestPiece));
    };
    way(Direction::Reads).largest = within(read);
    way(Direction::Writes).largest = within(write);
    areLimitsKnown_ = true;
}

std::uint32_t SFTPFlow::reserve() const noexcept
{
    return std::min(mostReserved, largestWindow_ / 4);
}

std::uint64_t SFTPFlow::most(Direction direction) const noexcept
{
    return direction == Direction::Reads
               ? mostToCome
               : std::clamp<std::uint64_t>(largestWindow_ - reserve(), smallestPiece, mostToSend);
}

/// Small pieces are not worth their replies, so there must be room for all of it, or for as much as
/// a server is sure to make: it need not open its window before half of that is used up. Whoever
/// has nothing in flight waits for less, as some make no more.
std::uint32_t SFTPFlow::sendable(std::uint32_t window, std::uint32_t size, std::uint32_t overhead,
                                 bool hasNone) const noexcept
{
    const std::uint32_t room = window - std::min(window, reserve());
    const std::uint32_t roomToExpect = largestWindow_ / 2 - reserve();
    if (roomToExpect <= overhead) {
        // There may never be enough; libssh sends it bit by bit.
        return size;
    }
    const std::uint32_t wanted = hasNone ? std::min(size, smallestPiece) : size;
    const std::uint32_t enough = std::min(overhead + wanted, roomToExpect);
    return room >= enough && room > overhead ? std::min(size, room - overhead) : 0;
}

} // namespace Tarnis
