#include "handles/SFTPFlow.h"

#include <algorithm>

namespace Tarnis {

namespace {

constexpr std::uint32_t mostReserved = 65'536;
constexpr std::uint32_t smallRequest = 1'024;

} // namespace

void SFTPFlow::addRead(std::uint32_t id, std::uint32_t length)
{
    reads_[id] = length;
    toCome_ += length;
}

void SFTPFlow::removeRead(std::uint32_t id)
{
    const auto found = reads_.find(id);
    if (found != reads_.end()) {
        toCome_ -= found->second;
        arrived_ = arrived_.value_or(arrivalStep) + found->second;
        reads_.erase(found);
    }
}

std::uint64_t SFTPFlow::bytesToCome(sftp_session sftp)
{
    for (const sftp_request_queue_struct* place = sftp->queue; place != nullptr && !reads_.empty();
         place = place->next) {
        removeRead(place->message->id);
    }
    return toCome_;
}

bool SFTPFlow::takeArrived() noexcept
{
    if (arrived_.value_or(arrivalStep) < arrivalStep) {
        return false;
    }
    arrived_ = 0;
    return true;
}

std::uint32_t SFTPFlow::room(sftp_session sftp)
{
    const std::uint32_t window = ssh_channel_window_size(sftp->channel);
    largestWindow_ = std::max(largestWindow_, window);
    return window - std::min(window, reserve());
}

std::uint32_t SFTPFlow::reserve() const noexcept
{
    return std::min(mostReserved, largestWindow_ / 4);
}

bool SFTPFlow::hasRoomForSmallRequest(sftp_session sftp)
{
    return ssh_channel_window_size(sftp->channel) >= smallRequest;
}

void SFTPFlow::setWriteLimit(std::optional<std::uint64_t> limit)
{
    knowsWriteLimit_ = true;
    // Servers say 0 where they have no limit.
    if (limit.value_or(0) != 0) {
        writeSize_ = static_cast<std::uint32_t>(std::min<std::uint64_t>(writeSize_, *limit));
    }
}

void SFTPFlow::noteTaken(std::uint32_t size) noexcept
{
    takenWrite_ = std::max({takenWrite_, size, ordinaryWrite});
}

void SFTPFlow::noteLargerRefused() noexcept
{
    writeSize_ = std::min(writeSize_, ordinaryWrite);
}

} // namespace Tarnis
