#include "sftp/SFTPWriteBehind.h"

#include "sftp/SFTPCall.h"
#include "sftp/SFTPWriteLimit.h"
#include "sftp/SFTPWriteRequest.h"

#include <algorithm>
#include <utility>

namespace Tarnis {

namespace {

constexpr std::uint64_t mostUnderWay = std::uint64_t{16} * SFTPFlow::largestWrite;
// Worth a reply of its own.
constexpr std::uint32_t smallestPiece = 4'096;

using BulkWriting = SSHHandleSFTPSession::BulkWriting;

} // namespace

void SFTPWriteBehind::start(std::uint64_t offset) noexcept
{
    offset_ = offset;
    failed_ = false;
    isCareful_ = false;
    stream_ = SFTPReplyStream(file_->lossMark());
}

bool SFTPWriteBehind::write(const char* buffer, std::uint64_t size)
{
    failed_ = failed_ || !learnLimits();
    for (std::uint64_t done = 0; !failed_ && done < size;) {
        const std::uint32_t taken = writePiece(buffer + done, size - done);
        failed_ = taken == 0;
        offset_ += taken;
        done += taken;
    }
    learnFromRefusal();
    return !failed_;
}

/// A large write may have been refused for anything, such as a disk that is full by now. For its
/// size, where all the rest was taken in small ones.
void SFTPWriteBehind::learnFromRefusal()
{
    if (!std::exchange(isCareful_, false) || !finish()) {
        return;
    }
    const auto lock = file_->getLock();
    file_->flow().noteLargerRefused();
}

bool SFTPWriteBehind::finish()
{
    while (!requests_.empty()) {
        failed_ = !collectOldest() || failed_;
    }
    return !failed_;
}

BulkWriting SFTPWriteBehind::writing() const
{
    const auto* const sftp = file_->getSftpSession();
    return sftp != nullptr ? sftp->getBulkWriting() : BulkWriting::OneByOne;
}

void SFTPWriteBehind::setWriting(BulkWriting how)
{
    const auto lock = file_->getLock();
    auto* const sftp = file_->getSftpSession();
    if (sftp != nullptr) {
        sftp->setBulkWriting(how);
    }
}

/// What the server takes, as it says itself; it is asked once per SFTP session. False: a failure.
bool SFTPWriteBehind::learnLimits()
{
    const auto attempt = [this](sftp_file file) {
        SFTPFlow& flow = file_->flow();
        flow.room(file->sftp);
        if (flow.knowsWriteLimit()) {
            return SFTPAttempt::Done;
        }
        if (!SFTPFlow::hasRoomForSmallRequest(file->sftp)) {
            return SFTPAttempt::TooEarly;
        }
        SFTPReplyStream stream(file_->lossMark());
        flow.setWriteLimit(askForWriteLimit(file, stream));
        return SFTPAttempt::Done;
    };
    return attemptInTurn(*file_, path_, stream_, attempt) == SFTPAttempt::Done;
}

SFTPWriteBehind::Piece SFTPWriteBehind::nextPiece(sftp_file file, std::uint64_t size) const
{
    const SFTPFlow& flow = file_->flow();
    const std::uint32_t overhead = writeOverhead(file);
    const std::uint32_t fitting = std::max(flow.largestRoom(), overhead + 1) - overhead;
    const std::uint32_t most = isCareful_ ? SFTPFlow::ordinaryWrite : flow.writeSize();
    const auto length = static_cast<std::uint32_t>(
        std::min<std::uint64_t>({size, most, flow.writeSize(), fitting}));
    return {length, writing() == BulkWriting::Pipelined && flow.isTaken(length)};
}

std::uint32_t SFTPWriteBehind::writePiece(const char* data, std::uint64_t size)
{
    const auto piece =
        callUnlessLost(*file_, [this, size](sftp_file file) { return nextPiece(file, size); });
    if (!piece) {
        failForLostSftp(path_);
        return 0;
    }
    return piece->isProved ? send(data, piece->size) : writeProbing(data, piece->size);
}

/// Finds out whether the server takes writes of this size; one that every server takes is tried
/// where it does not.
std::uint32_t SFTPWriteBehind::writeProbing(const char* data, std::uint32_t size)
{
    if (!finish()) {
        return 0;
    }
    std::uint32_t taken = writeAlone(data, size);
    const bool wasRefused = taken == 0 && size > SFTPFlow::ordinaryWrite && !file_->isLost();
    if (wasRefused) {
        taken = writeAlone(data, SFTPFlow::ordinaryWrite);
    }
    isCareful_ = isCareful_ || (wasRefused && taken > 0);
    const auto lock = file_->getLock();
    if (taken > 0) {
        file_->flow().noteTaken(taken);
    }
    return taken;
}

std::uint32_t SFTPWriteBehind::writeAlone(const char* data, std::uint32_t size)
{
    const auto how = callUnlessLost(*file_, [this](sftp_file) { return writing(); });
    if (!how) {
        failForLostSftp(path_);
        return 0;
    }
    if (*how != BulkWriting::OneByOne) {
        const Answer answer = exchange(data, size);
        if (answer.isGiven) {
            setWriting(BulkWriting::Pipelined);
        }
        if (answer.isGiven || *how == BulkWriting::Pipelined) {
            return answer.taken;
        }
        stream_ = SFTPReplyStream(file_->lossMark());
    }
    const std::uint32_t written = writeByLibssh(data, size);
    if (written > 0) {
        setWriting(BulkWriting::OneByOne);
    }
    return written;
}

/// Sends a request that is answered before anybody else gets a turn. The first one on an SFTP
/// session shows whether libssh hands over the reply to a request that it has not made itself.
SFTPWriteBehind::Answer SFTPWriteBehind::exchange(const char* data, std::uint32_t size)
{
    Answer answer{false, 0};
    attemptInTurn(*file_, path_, stream_, [&](sftp_file file) {
        Request sent{};
        const SFTPAttempt attempt = sendNow(file, data, size, sent);
        if (attempt == SFTPAttempt::Done) {
            const bool isTaken = collectWrite(file, sent.id, stream_);
            answer = {isTaken || stream_.refusal.status, isTaken ? sent.length : 0};
            if (!isTaken) {
                noteRefusal(file->sftp, file_->lossMark(), stream_.refusal, path_);
            }
        }
        return attempt;
    });
    return answer;
}

/// For a libssh that hands over no replies but to requests of its own.
std::uint32_t SFTPWriteBehind::writeByLibssh(const char* data, std::uint32_t size)
{
    ssize_t written = 0;
    const auto attempt = [&](sftp_file file) {
        const std::uint32_t length = sendable(file, size);
        if (length == 0) {
            return SFTPAttempt::TooEarly;
        }
        sftp_seek64(file, offset_);
        written = sftp_write(file, data, length);
        return written < 0 ? SFTPAttempt::Failed : SFTPAttempt::Done;
    };
    if (attemptInTurn(*file_, path_, stream_, attempt) == SFTPAttempt::Done && written == 0) {
        FileSystem::fail(FileSystem::FailureCode::Protocol, "no bytes are taken", path_);
    }
    return static_cast<std::uint32_t>(std::max<ssize_t>(written, 0));
}

std::uint32_t SFTPWriteBehind::send(const char* data, std::uint32_t size)
{
    Request sent{};
    const auto attempt = [&](sftp_file file) { return sendNow(file, data, size, sent); };
    auto result = SFTPAttempt::TooEarly;
    while (!requests_.empty() && result == SFTPAttempt::TooEarly) {
        result = mayHaveUnderWay(size) ? attemptNow(*file_, path_, attempt) : result;
        // The server has read everything before what it answers.
        if (result == SFTPAttempt::TooEarly && !collectOldest()) {
            return 0;
        }
    }
    if (result == SFTPAttempt::TooEarly) {
        result = attemptInTurn(*file_, path_, stream_, attempt);
    }
    if (result == SFTPAttempt::Done) {
        requests_.push_back(sent);
        bytesUnderWay_ += sent.length;
    }
    return result == SFTPAttempt::Done ? sent.length : 0;
}

SFTPAttempt SFTPWriteBehind::sendNow(sftp_file file, const char* data, std::uint32_t size,
                                     Request& sent)
{
    const std::uint32_t length = sendable(file, size);
    if (length == 0) {
        return SFTPAttempt::TooEarly;
    }
    const auto id = sendWrite(file, offset_, data, length, packet_);
    sent = {id.value_or(0), length};
    return id ? SFTPAttempt::Done : SFTPAttempt::Failed;
}

/// How many bytes of a write can be sent now; 0: there is not enough room yet. Small pieces are not
/// worth their replies, so there must be room for all of it, or for as much as a server is sure to
/// make. Whoever has nothing under way waits for less: some servers make no more.
std::uint32_t SFTPWriteBehind::sendable(sftp_file file, std::uint32_t size) const
{
    SFTPFlow& flow = file_->flow();
    const std::uint32_t overhead = writeOverhead(file);
    const std::uint32_t room = flow.room(file->sftp);
    if (flow.roomToExpect() <= overhead) {
        // There may never be enough; libssh sends it bit by bit.
        return size;
    }
    const std::uint32_t wanted = requests_.empty() ? std::min(size, smallestPiece) : size;
    const std::uint32_t enough = std::min(overhead + wanted, flow.roomToExpect());
    return room >= enough && room > overhead ? std::min(size, room - overhead) : 0;
}

bool SFTPWriteBehind::mayHaveUnderWay(std::uint32_t size) const noexcept
{
    return requests_.size() < window_.size() && bytesUnderWay_ + size <= mostUnderWay;
}

bool SFTPWriteBehind::collectOldest()
{
    const Request request = requests_.front();
    requests_.pop_front();
    bytesUnderWay_ -= request.length;
    const auto answer = window_.watch([&] {
        return callUnlessLost(*file_, [&](sftp_file file) {
            file->sftp->errnum = SSH_FX_OK;
            const bool isTaken = collectWrite(file, request.id, stream_);
            if (!isTaken && !failed_) {
                noteRefusal(file->sftp, file_->lossMark(), stream_.refusal, path_);
            }
            return isTaken;
        });
    });
    if (!answer && !failed_) {
        failForLostSftp(path_);
    }
    return answer.value_or(false);
}

} // namespace Tarnis
