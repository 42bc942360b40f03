#include "sftp/SFTPQueue.h"

#include "handles/Deadline.h"
#include "handles/SSHCall.h"
#include "handles/SSHFailure.h"
#include "sftp/SFTPCall.h"
#include "sftp/SFTPQueueFiles.h"

#include <algorithm>
#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::FailureSource;

namespace {

using Clock = std::chrono::steady_clock;

// Enough for the round trips of a long line; more only waits over there.
constexpr std::size_t mostRequests = 128;
// What waits for the server to take it is a copy of what is written.
constexpr std::size_t mostUnsent = std::size_t{2} << 20U;

// How long a server may take to open a channel.
constexpr std::chrono::seconds openingLimit{100};

} // namespace

std::unique_ptr<SFTPQueue> SFTPQueue::create(SSHHandleSFTPSession& sftp,
                                             const FileSystem::FileSystem2& system,
                                             std::shared_ptr<const std::atomic<bool>> isAlive)
{
    std::unique_ptr<SFTPQueue> queue(new SFTPQueue(system, std::move(isAlive)));
    return queue->open(sftp) ? std::move(queue) : nullptr;
}

SFTPQueue::SFTPQueue(const FileSystem::FileSystem2& system,
                     std::shared_ptr<const std::atomic<bool>> isAlive)
    : system_(system)
    , isAlive_(std::move(isAlive))
{}

SFTPQueue::~SFTPQueue() = default;

bool SFTPQueue::open(SSHHandleSFTPSession& sftp)
{
    if (!connect(sftp) || !awaitServer()) {
        return false;
    }
    const auto offers = [this](const SFTPExtension& extension) {
        return connection_->offers(extension);
    };
    const bool isLikeOpenSsh =
        server_ == SFTPServerKind::OpenSsh || server_ == SFTPServerKind::Dropbear;
    replaces_ = offers(posixRenameExtension);
    tellsVolumes_ = offers(statvfsExtension);
    isKnownToRefuse_ = isLikeOpenSsh && replaces_ && tellsVolumes_ && offers(hardlinkExtension) &&
                       offers(fsyncExtension) && offers(lsetstatExtension);
    if (offers(limitsExtension)) {
        askLimits();
    }
    return true;
}

bool SFTPQueue::connect(SSHHandleSFTPSession& sftp)
{
    const auto lock = sftp.getLock();
    SSHHandleSession* const session = sftp.getSession();
    if (session == nullptr || session->getResource() == nullptr) {
        return failForLostSftp({});
    }
    server_ = sftpServerKindOf(session->getResource());
    connection_ = SFTPConnection::create(*session, wakeUp_);
    return connection_ != nullptr || noteTransportFailure(*session, FailureCode::NoResources);
}

bool SFTPQueue::awaitServer()
{
    using Phase = SFTPConnection::Phase;
    const auto deadline = Clock::now() + openingLimit;
    const auto phase = [this] {
        const auto lock = connection_->channel().getLock();
        connection_->advance();
        return connection_->phase();
    };
    for (Phase now = phase(); now != Phase::Ready; now = phase()) {
        if (now == Phase::Refused) {
            return fail(FailureCode::Denied, FailureSource::Transport, 0, connection_->error());
        }
        if (Clock::now() >= deadline) {
            return fail(FailureCode::TimedOut, "the server does not open a channel");
        }
        wakeUp_.wait(openingLimit);
    }
    return true;
}

void SFTPQueue::askLimits()
{
    ask([](SFTPPacketWriter& writer, std::uint32_t id) { writer.limits(id); },
        [this](const Answer& answer) {
            const auto limits = answer.type == SFTPPacketType::ExtendedReply
                                    ? decodeLimits(answer.fields)
                                    : std::nullopt;
            if (limits) {
                const auto within = [](std::uint64_t most) {
                    return most == 0 ? largestPiece
                                     : static_cast<std::uint32_t>(
                                           std::min<std::uint64_t>(most, largestPiece));
                };
                readSize_ = within(limits->readSize);
                writeSize_ = within(limits->writeSize);
            }
        });
}

std::size_t SFTPQueue::do_pending() const noexcept
{
    return pending_;
}

std::size_t SFTPQueue::do_capacity() const noexcept
{
    return mostRequests;
}

int SFTPQueue::do_descriptor() const noexcept
{
    return wakeUp_.descriptor();
}

void SFTPQueue::later(std::function<void()> work)
{
    ready_.push_back(std::move(work));
}

void SFTPQueue::ask(Write write, Handler handler, char* buffer, std::uint32_t size)
{
    waiting_.push_back(
        [this, write = std::move(write), handler = std::move(handler), buffer, size]() mutable {
            connection_->send(write, std::move(handler), buffer, size);
        });
}

std::size_t SFTPQueue::do_pump(std::chrono::milliseconds limit)
{
    const auto deadline = deadlineAfter(Clock::now(), limit);
    completed_ = 0;
    for (;;) {
        callReady();
        handleAnswers();
        if (completed_ > 0 || pending_ == 0) {
            return completed_;
        }
        if (advance()) {
            continue;
        }
        const auto now = Clock::now();
        if (now >= deadline) {
            return completed_;
        }
        wakeUp_.wait(std::chrono::ceil<std::chrono::milliseconds>(deadline - now));
    }
}

void SFTPQueue::callReady()
{
    // What these start is done in the same round.
    while (!ready_.empty()) {
        const auto work = std::move(ready_.front());
        ready_.pop_front();
        work();
    }
}

bool SFTPQueue::advance()
{
    const auto lock = connection_->channel().getLock();
    const auto hasRoom = [this] {
        return connection_->inFlight() < mostRequests && connection_->unsent() < mostUnsent;
    };
    do {
        while (!waiting_.empty() && hasRoom()) {
            // It may put what comes after it in its place.
            const auto send = std::move(waiting_.front());
            waiting_.pop_front();
            send();
        }
        connection_->advance();
        // What was sent has made room for more.
    } while (!waiting_.empty() && hasRoom());
    for (auto& answered : connection_->takeAnswered()) {
        answers_.push_back(std::move(answered));
    }
    return !answers_.empty();
}

void SFTPQueue::handleAnswers()
{
    while (!answers_.empty()) {
        const auto next = std::move(answers_.front());
        answers_.pop_front();
        next.handler(next.answer);
    }
}

} // namespace Tarnis
