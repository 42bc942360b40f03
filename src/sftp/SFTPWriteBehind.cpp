#include "sftp/SFTPWriteBehind.h"

#include "handles/SSHCall.h"
#include "sftp/SFTPRequest.h"
#include "sftp/SFTPWriteRequest.h"

#include <algorithm>

namespace Tarnis {

namespace {

// A server may refuse more, though larger ones are common.
constexpr std::uint32_t largestRequest = 256'000;
constexpr std::size_t mostUnderWay = 16;

using BulkWriting = SSHHandleSFTPSession::BulkWriting;

/// How the SFTP session of a file writes. To be called under the lock.
BulkWriting writingOf(const SSHHandleSFTPSessionFile& file)
{
    const auto* const sftp = file.getSftpSession();
    return sftp != nullptr && canSendRequests() ? sftp->getBulkWriting() : BulkWriting::OneByOne;
}

} // namespace

void SFTPWriteBehind::start(std::uint64_t offset) noexcept
{
    offset_ = offset;
    failed_ = false;
    stream_ = {};
}

bool SFTPWriteBehind::write(const char* buffer, std::uint64_t size)
{
    for (std::uint64_t done = 0; !failed_ && done < size;) {
        const auto length =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(size - done, largestRequest));
        failed_ = !writePiece(buffer + done, length);
        offset_ += length;
        done += length;
    }
    return !failed_;
}

bool SFTPWriteBehind::finish()
{
    while (!requests_.empty()) {
        failed_ = !collectOldest() || failed_;
    }
    return !failed_;
}

bool SFTPWriteBehind::writePiece(const char* data, std::uint32_t size)
{
    const auto how = callLocked(*file_, [this](sftp_file) { return writingOf(*file_); });
    switch (how) {
    case BulkWriting::Pipelined:
        return send(data, size);
    case BulkWriting::OneByOne:
        return writeOneByOne(data, size);
    case BulkWriting::Unknown:
        break;
    }
    return writeFirst(data, size);
}

/// The first request on an SFTP session is answered before anybody else gets a turn. It shows
/// whether libssh hands over the reply to a request that it has not made itself.
bool SFTPWriteBehind::writeFirst(const char* data, std::uint32_t size)
{
    const bool written = callLocked(*file_, [&](sftp_file file) {
        const auto id = sendWrite(file, offset_, data, size, packet_);
        return id && collectWrite(file, *id, stream_);
    });
    if (!written && !writeOneByOne(data, size)) {
        return false;
    }
    const auto lock = file_->getLock();
    auto* const sftp = file_->getSftpSession();
    if (sftp != nullptr) {
        sftp->setBulkWriting(written ? BulkWriting::Pipelined : BulkWriting::OneByOne);
    }
    return true;
}

bool SFTPWriteBehind::writeOneByOne(const char* data, std::uint32_t size)
{
    return callLocked(*file_, [=](sftp_file file) {
        sftp_seek64(file, offset_);
        for (std::uint32_t done = 0; done < size;) {
            const ssize_t written = sftp_write(file, data + done, size - done);
            if (written <= 0) {
                return false;
            }
            done += static_cast<std::uint32_t>(written);
        }
        return true;
    });
}

bool SFTPWriteBehind::send(const char* data, std::uint32_t size)
{
    if (requests_.size() >= std::min(window_.size(), mostUnderWay) && !collectOldest()) {
        return false;
    }
    const auto id = callLocked(
        *file_, [&](sftp_file file) { return sendWrite(file, offset_, data, size, packet_); });
    if (id) {
        requests_.push_back(*id);
    }
    return id.has_value();
}

bool SFTPWriteBehind::collectOldest()
{
    const std::uint32_t id = requests_.front();
    requests_.pop_front();
    return window_.watch([&] {
        return callLocked(*file_, [&](sftp_file file) { return collectWrite(file, id, stream_); });
    });
}

} // namespace Tarnis
