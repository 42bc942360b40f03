#include "sftp/SFTPPipeline.h"

#include "sftp/SFTPCall.h"
#include "sftp/SFTPServerKind.h"
#include "sftp/wire/SFTPReplyFields.h"

#include <FileSystem/FailureScope.h>

#include <algorithm>

namespace Tarnis {

namespace {

constexpr std::size_t mostInFlight = 64;

// Length, type and number of a write request, two lengths of texts, and the position.
constexpr std::uint32_t overheadBesideHandle = 4 + 1 + 4 + 4 + 4 + 8;

/// What the server says that it takes and gives in one request, as far as it is not known without
/// asking that this is more than any request here is for. To be called under the lock.
SFTPLimits askLimits(LibsshRequests& requests, sftp_session sftp)
{
    constexpr SFTPLimits none{};
    const bool isOffered = sftp_extension_supported(sftp, "limits@openssh.com", "1") != 0;
    const auto number =
        isOffered && !isOpenSshSftpServer(sftp) ? requests.takeNumber(sftp) : std::nullopt;
    if (!number) {
        return none;
    }
    std::string packet;
    SFTPPacketWriter(packet).limits(*number);
    const auto reply =
        LibsshRequests::send(sftp, packet) ? requests.await(sftp, *number) : std::nullopt;
    const bool isTold = reply && typeOf(*reply) == SFTPPacketType::ExtendedReply;
    return isTold ? decodeLimits(reply->fields()).value_or(none) : none;
}

} // namespace

SFTPPipeline::SFTPPipeline(SSHHandleSFTPSessionFile& file, const std::string& path,
                           SFTPFlow::Direction direction)
    : file_(file)
    , path_(path)
    , direction_(direction)
    , share_(file.flow(), direction)
    , requests_(file.lossMark())
    , socket_(SSHSocketWait::Clock::time_point::max())
{}

SFTPPipeline::~SFTPPipeline()
{
    const FileSystem::FailureKeeper keeper;
    try {
        for (; !inFlight_.empty(); inFlight_.pop_front()) {
            callUnlessLost(file_, [this](sftp_file file) {
                return requests_.await(sftpOf(file), inFlight_.front().number).has_value();
            });
        }
    } catch (...) {
        // Nobody is left to tell; the answers are dropped with the SFTP session.
    }
}

std::optional<bool> SFTPPipeline::run(SFTPPieces& pieces)
{
    auto piece = pieces.next();
    while (piece || !inFlight_.empty()) {
        const Attempt sending = piece ? attempt(pieces, *piece) : Attempt::TooEarly;
        if (sending == Attempt::NotAble && !hasSent_) {
            return std::nullopt;
        }
        if (sending == Attempt::TooEarly) {
            waitOrCollect(pieces);
        } else if (sending != Attempt::Sent) {
            if (sending == Attempt::NotAble && !hasFailed_) {
                FileSystem::fail(FileSystem::FailureCode::NoResources, {}, path_);
            }
            giveUp(pieces);
        }
        piece = pieces.next();
    }
    return !hasFailed_;
}

bool SFTPPipeline::mayFollow(const SFTPPieces& pieces, const SFTPPiece& piece) const
{
    return inFlight_.size() < mostInFlight &&
           std::none_of(inFlight_.begin(), inFlight_.end(), [&](const Request& request) {
               return pieces.hasToFollow(piece, request.piece);
           });
}

SFTPPipeline::Attempt SFTPPipeline::attempt(SFTPPieces& pieces, const SFTPPiece& piece)
{
    if (!mayFollow(pieces, piece)) {
        return Attempt::TooEarly;
    }
    const auto done =
        callUnlessLost(file_, [&](sftp_file file) { return sendNow(file, pieces, piece); });
    if (!done) {
        noteLost();
    }
    return done.value_or(Attempt::Failed);
}

SFTPPipeline::Attempt SFTPPipeline::sendNow(sftp_file file, SFTPPieces& pieces,
                                            const SFTPPiece& piece)
{
    const sftp_session sftp = sftpOf(file);
    clearStatus(sftp);
    const std::string_view handle = handleOf(file);
    learnLimits(sftp);
    const std::uint32_t size = allowed(sftp, piece, handle.size());
    if (requests_.isBroken()) {
        return noteUnsent(sftp);
    }
    if (size == 0) {
        return Attempt::TooEarly;
    }
    if (direction_ == SFTPFlow::Direction::Reads && file_.flow().mayNarrow()) {
        receiveWindow_.widen(channelOf(sftp));
    }
    const auto number = requests_.takeNumber(sftp);
    if (!number) {
        return Attempt::NotAble;
    }
    const SFTPPiece part{piece.range, piece.from, size};
    packet_.clear();
    SFTPPacketWriter writer(packet_);
    pieces.encode(writer, *number, handle, part);
    if (!LibsshRequests::send(sftp, packet_)) {
        return noteUnsent(sftp);
    }
    inFlight_.push_back({*number, part});
    share_.add(size);
    pieces.advance(size);
    socket_.progressed();
    hasSent_ = true;
    return Attempt::Sent;
}

SFTPPipeline::Attempt SFTPPipeline::noteUnsent(sftp_session sftp)
{
    if (!hasFailed_) {
        noteSftpFailure(sftp, file_.lossMark(), path_, SFTPNotes::All, SFTPSubject::OpenFile);
    }
    return Attempt::Failed;
}

/// Once for each SFTP session, where the server may have any to tell.
void SFTPPipeline::learnLimits(sftp_session sftp)
{
    SFTPFlow& flow = file_.flow();
    if (flow.areLimitsKnown()) {
        return;
    }
    const SFTPLimits told = askLimits(requests_, sftp);
    flow.setLimits(told.readSize, told.writeSize);
}

std::uint32_t SFTPPipeline::allowed(sftp_session sftp, const SFTPPiece& piece,
                                    std::size_t handleSize)
{
    const auto overhead = static_cast<std::uint32_t>(overheadBesideHandle + handleSize);
    const std::uint32_t size = share_.allowed(sftp, piece.size, overhead);
    // A server may read on only when it has got rid of its replies, whomever they are for.
    const bool takesIn = size == 0 && inFlight_.empty() && requests_.takeIn(sftp);
    return takesIn ? share_.allowed(sftp, piece.size, overhead) : size;
}

/// The server has read everything before what it answers. Whoever has nothing in flight waits for
/// the others' answers, without the lock.
void SFTPPipeline::waitOrCollect(SFTPPieces& pieces)
{
    if (!inFlight_.empty()) {
        receiveOldest(pieces);
    } else {
        // Where it is lost, the next attempt says so.
        static_cast<void>(unlessLost(file_, [this] { return socket_.wait(file_); }));
    }
}

void SFTPPipeline::receiveOldest(SFTPPieces& pieces)
{
    const Request request = inFlight_.front();
    inFlight_.pop_front();
    const auto isTaken = takeAnswer(pieces, request);
    share_.remove(request.piece.size);
    if (!isTaken) {
        noteLost();
    }
    if (!isTaken.value_or(false)) {
        hasFailed_ = true;
        pieces.fail(request.piece);
    }
}

/// What has come before the SFTP session was lost counts. Empty: it is closed.
std::optional<bool> SFTPPipeline::takeAnswer(SFTPPieces& pieces, const Request& request)
{
    try {
        return callLocked(file_, [&](sftp_file file) { return collect(file, pieces, request); });
    } catch (const FileSystem::handle_fatal_error&) {
        if (!file_.isLost()) {
            throw;
        }
        return std::nullopt;
    }
}

bool SFTPPipeline::collect(sftp_file file, SFTPPieces& pieces, const Request& request)
{
    clearStatus(sftpOf(file));
    const auto reply = requests_.await(sftpOf(file), request.number);
    const auto refusal =
        reply ? pieces.take(request.piece, *reply) : std::make_optional<SFTPRefusal>();
    if (refusal && !hasFailed_) {
        noteRefusal(sftpOf(file), file_.lossMark(), *refusal, path_);
    }
    return !refusal;
}

void SFTPPipeline::noteLost()
{
    if (!hasFailed_) {
        failForLostSftp(path_);
    }
}

/// Nothing more can be sent.
void SFTPPipeline::giveUp(SFTPPieces& pieces)
{
    hasFailed_ = true;
    while (const auto piece = pieces.next()) {
        pieces.fail(*piece);
    }
}

} // namespace Tarnis
