#include "sftp/SFTPReadAhead.h"

#include "handles/LibsshCompatibility.h"
#include "handles/SSHCall.h"
#include "sftp/SFTPReplies.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Tarnis {

namespace {

// What OpenSSH answers at most; more ends the connection on some servers.
constexpr std::uint32_t largestRequest = 261'120;
constexpr std::uint32_t smallestRequest = 4'096;
constexpr std::uint64_t mostUnderWay = std::uint64_t{16} * largestRequest;
// Fits into the part of a channel's receive window that libssh keeps open at all times.
constexpr std::uint64_t mostUnderWayBesideWriters = std::uint64_t{2} * largestRequest;
// What a server nearby needs to be kept busy. More would fill libssh's buffers, which costs memory
// traffic.
constexpr std::uint64_t ampleUnderWay = std::uint64_t{3} * largestRequest;
// As many short answers of one size in a row make a pattern.
constexpr unsigned pattern = 3;

} // namespace

void SFTPReadAhead::start(std::uint64_t offset)
{
    nextOffset_ = offset;
    expectedEnd_ = offset > expectedEnd_ ? 0 : expectedEnd_;
    requestSize_ = largestRequest;
    shortReplies_ = 0;
    stream_ = {};
    status_ = Result::Status::Complete;
    chunkBegin_ = 0;
    chunkEnd_ = 0;
}

FileSystem::StorageSystemReadResult SFTPReadAhead::read(char* buffer, std::uint64_t size)
{
    std::uint64_t count = takeFromChunk(buffer, size);
    while (count < size && status_ == Result::Status::Complete) {
        fill();
        count += collectNext(buffer + count, size - count);
    }
    return {count, count == size ? Result::Status::Complete : status_};
}

void SFTPReadAhead::finish()
{
    std::vector<char> unwanted;
    // Each is forgotten before it is collected, so that a failure does not collect it twice.
    while (!requests_.empty()) {
        const Request request = requests_.front();
        requests_.pop_front();
        unwanted.resize(std::max<std::size_t>(unwanted.size(), request.length));
        static_cast<void>(collect(request, unwanted.data()));
    }
}

std::uint64_t SFTPReadAhead::takeFromChunk(char* buffer, std::uint64_t size) noexcept
{
    const std::size_t count = std::min<std::uint64_t>(size, chunkEnd_ - chunkBegin_);
    if (count > 0) {
        std::memcpy(buffer, chunk_.data() + chunkBegin_, count);
        chunkBegin_ += count;
    }
    return count;
}

/// Sends as many requests as may be under way.
void SFTPReadAhead::fill()
{
    const std::uint64_t most = callLocked(*file_, [this](sftp_file) {
        const auto* const sftp = file_->getSftpSession();
        return sftp != nullptr && sftp->hasBulkWriters() ? mostUnderWayBesideWriters : mostUnderWay;
    });
    if (most == mostUnderWay && bytesUnderWay_ >= mostUnderWayBesideWriters) {
        receiveWindow_.keepWide(*file_);
    }
    while (mayAsk(most) && ask(nextOffset_, nextLength(), requests_)) {
        nextOffset_ += requests_.back().length;
    }
}

std::uint32_t SFTPReadAhead::nextLength() const noexcept
{
    return nextOffset_ < expectedEnd_ ? static_cast<std::uint32_t>(std::min<std::uint64_t>(
                                            requestSize_, expectedEnd_ - nextOffset_))
                                      : requestSize_;
}

bool SFTPReadAhead::mayAsk(std::size_t bytesAtMost) const noexcept
{
    // Behind the expected end, one request is enough to find out whether it is the end.
    const bool isSettled = expectedEnd_ != 0 && nextOffset_ > expectedEnd_;
    return !isSettled && status_ == Result::Status::Complete && requests_.size() < window_.size() &&
           bytesUnderWay_ + requestSize_ <= bytesAtMost;
}

/// Sends one request and adds it to `requests`. False: it could not be sent.
bool SFTPReadAhead::ask(std::uint64_t offset, std::uint32_t length, std::deque<Request>& requests)
{
    const int id = callLocked(*file_, [offset, length](sftp_file file) {
        // Others may have moved the position.
        sftp_seek64(file, offset);
        return Compatibility::beginRead(file, length);
    });
    if (id < 0) {
        return false;
    }
    requests.push_back({static_cast<std::uint32_t>(id), offset, length});
    bytesUnderWay_ += length;
    return true;
}

/// Sends requests for what a short answer left out, ahead of all others.
bool SFTPReadAhead::askForMissing(const Request& request, std::uint32_t count)
{
    std::deque<Request> missing;
    bool sent = true;
    for (std::uint32_t done = count; sent && done < request.length;) {
        const std::uint32_t length = std::min(request.length - done, requestSize_);
        sent = ask(request.offset + done, length, missing);
        done += length;
    }
    requests_.insert(requests_.begin(), missing.begin(), missing.end());
    return sent;
}

/// Waits for the next answer and puts it into the buffer, what does not fit into the chunk.
std::uint64_t SFTPReadAhead::collectNext(char* buffer, std::uint64_t size)
{
    if (requests_.empty()) {
        end(Result::Status::Error);
        return 0;
    }
    const Request request = requests_.front();
    requests_.pop_front();
    const bool fits = request.length <= size;
    chunk_.resize(std::max<std::size_t>(chunk_.size(), fits ? 0 : request.length));
    char* const destination = fits ? buffer : chunk_.data();
    const Reply reply = window_.watch([&] { return collect(request, destination); },
                                      bytesUnderWay_ >= ampleUnderWay);
    const std::uint32_t count = take(request, reply);
    if (fits) {
        return count;
    }
    chunkBegin_ = 0;
    chunkEnd_ = count;
    return takeFromChunk(buffer, size);
}

/// Draws the conclusions from an answer; how many bytes it brought.
std::uint32_t SFTPReadAhead::take(const Request& request, const Reply& reply)
{
    if (reply.count <= 0) {
        // No data and no end of file would be asked for again for ever.
        end(reply.count == 0 && reply.endOfFile ? Result::Status::EndOfFile
                                                : Result::Status::Error);
        return 0;
    }
    const auto count = static_cast<std::uint32_t>(reply.count);
    receiveWindow_.shrink(count);
    if (request.offset >= expectedEnd_) {
        // The file goes on behind what was thought to be its end.
        expectedEnd_ = 0;
    }
    if (count == request.length) {
        shortReplies_ = 0;
    } else {
        learnFromShortReply(count);
        if (!askForMissing(request, count)) {
            end(Result::Status::Error);
        }
    }
    return count;
}

SFTPReadAhead::Reply SFTPReadAhead::collect(const Request& request, char* destination)
{
    bytesUnderWay_ -= request.length;
    return callLocked(*file_, [this, &request, destination](sftp_file file) {
        // Also forgets that the end was met, which another request may have.
        sftp_seek64(file, request.offset + request.length);
        const int count =
            collectReadDirectly(file, destination, request.length, request.id, stream_);
        return Reply{count, file->eof == 1};
    });
}

void SFTPReadAhead::learnFromShortReply(std::uint32_t count) noexcept
{
    shortReplies_ = count == shortReply_ ? shortReplies_ + 1 : 1;
    shortReply_ = count;
    if (shortReplies_ >= pattern) {
        requestSize_ = std::clamp(count, smallestRequest, requestSize_);
    }
}

/// Nothing more is read.
void SFTPReadAhead::end(Result::Status status)
{
    status_ = status;
    finish();
}

} // namespace Tarnis
