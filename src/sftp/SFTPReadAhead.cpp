#include "sftp/SFTPReadAhead.h"

#include "handles/LibsshCompatibility.h"
#include "sftp/SFTPCall.h"
#include "sftp/SFTPReplies.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Tarnis {

namespace {

// No more than what OpenSSH answers at most; more ends the connection on some servers. A multiple
// of what most others answer at most, so that nothing smaller is left to ask for in between: some
// answer that with more than was asked for.
constexpr std::uint32_t largestRequest = std::uint32_t{7} * 32'768;
constexpr std::uint32_t smallestRequest = 4'096;
// Of one file, what has arrived and waits to be handed out included.
constexpr std::uint64_t mostUnderWay = std::uint64_t{16} * largestRequest;
// Of all files of the SFTP session together. Fits into the receive window that is kept wide.
constexpr std::uint64_t mostToCome = std::uint64_t{20} * largestRequest;
// Fits into the part of a channel's receive window that libssh keeps open at all times: a server
// that waits for room in there may not take more writes meanwhile.
constexpr std::uint64_t mostToComeBesideWriters = std::uint64_t{2} * largestRequest;
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
    stream_ = SFTPReplyStream(file_->lossMark());
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
        static_cast<void>(collect(request, unwanted.data(), false));
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
    auto attempt = SFTPAttempt::Done;
    while (mayAsk() && attempt == SFTPAttempt::Done) {
        attempt = askNext();
    }
}

std::uint32_t SFTPReadAhead::nextLength() const noexcept
{
    return nextOffset_ < expectedEnd_ ? static_cast<std::uint32_t>(std::min<std::uint64_t>(
                                            requestSize_, expectedEnd_ - nextOffset_))
                                      : requestSize_;
}

bool SFTPReadAhead::mayAsk() const noexcept
{
    // Behind the expected end, one request is enough to find out whether it is the end.
    const bool isSettled = expectedEnd_ != 0 && nextOffset_ > expectedEnd_;
    return !isSettled && status_ == Result::Status::Complete && requests_.size() < window_.size() &&
           bytesUnderWay_ + requestSize_ <= mostUnderWay;
}

/// Sends the next request, where there is another one to wait for only if it is this file's turn.
SFTPAttempt SFTPReadAhead::askNext()
{
    const auto attempt = [this](sftp_file file) {
        const std::uint32_t length = nextLength();
        return isItsTurn(file, length) ? ask(file, nextOffset_, length, requests_)
                                       : SFTPAttempt::TooEarly;
    };
    auto result = attemptNow(*file_, path_, attempt);
    if (result == SFTPAttempt::TooEarly && requests_.empty()) {
        const SFTPFlow::Waiting waiting(file_->flow());
        result = attemptInTurn(*file_, path_, stream_, attempt);
    }
    if (result == SFTPAttempt::Done) {
        nextOffset_ += requests_.back().length;
    }
    return result;
}

bool SFTPReadAhead::isItsTurn(sftp_file file, std::uint32_t length)
{
    const auto* const sftp = file_->getSftpSession();
    SFTPFlow& flow = file_->flow();
    // Whoever has nothing under way goes first.
    const bool isHeldBack = flow.hasWaiting() && !requests_.empty();
    const std::uint64_t toCome = flow.bytesToCome(file->sftp);
    if (sftp != nullptr && sftp->hasBulkWriters()) {
        return toCome + length <= mostToComeBesideWriters && !isHeldBack;
    }
    if (toCome >= mostToComeBesideWriters) {
        receiveWindow_.keepWide(file, flow);
    }
    return toCome + length <= mostToCome && !isHeldBack;
}

/// Sends one request and adds it to `requests`.
SFTPAttempt SFTPReadAhead::ask(sftp_file file, std::uint64_t offset, std::uint32_t length,
                               std::deque<Request>& requests)
{
    if (!SFTPFlow::hasRoomForSmallRequest(file->sftp)) {
        return SFTPAttempt::TooEarly;
    }
    // Others may have moved the position.
    sftp_seek64(file, offset);
    const int id = Compatibility::beginRead(file, length);
    if (id < 0) {
        // libssh sets a status as if the server had answered.
        file->sftp->errnum = SSH_FX_OK;
        return SFTPAttempt::Failed;
    }
    requests.push_back({static_cast<std::uint32_t>(id), offset, length});
    bytesUnderWay_ += length;
    file_->flow().addRead(static_cast<std::uint32_t>(id), length);
    return SFTPAttempt::Done;
}

/// Sends requests for what a short answer left out, ahead of all others.
bool SFTPReadAhead::askForMissing(const Request& request, std::uint32_t count)
{
    std::deque<Request> missing;
    bool sent = true;
    for (std::uint32_t done = count; sent && done < request.length;) {
        const std::uint32_t length = std::min(request.length - done, requestSize_);
        const auto attempt = [&](sftp_file file) {
            return ask(file, request.offset + done, length, missing);
        };
        sent = attemptInTurn(*file_, path_, stream_, attempt) == SFTPAttempt::Done;
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
    const Reply reply = window_.watch([&] { return collect(request, destination, true); },
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

SFTPReadAhead::Reply SFTPReadAhead::collect(const Request& request, char* destination,
                                            bool isWanted)
{
    bytesUnderWay_ -= request.length;
    const auto answer = callUnlessLost(*file_, [&](sftp_file file) {
        file->sftp->errnum = SSH_FX_OK;
        // Also forgets that the end was met, which another request may have.
        sftp_seek64(file, request.offset + request.length);
        const int count =
            collectReadDirectly(file, destination, request.length, request.id, stream_);
        file_->flow().removeRead(request.id);
        const Reply reply{count, file->eof == 1};
        if (isWanted && count < 0) {
            noteRefusal(file->sftp, file_->lossMark(), stream_.refusal, path_);
        } else if (isWanted && count == 0 && !reply.endOfFile) {
            noteRefusal(file->sftp, file_->lossMark(), {std::nullopt, "the server sent no bytes"},
                        path_);
        }
        return reply;
    });
    if (!answer && isWanted) {
        failForLostSftp(path_);
    }
    return answer.value_or(Reply{-1, false});
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
