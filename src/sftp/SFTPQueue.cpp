#include "sftp/SFTPQueue.h"

#include "handles/Deadline.h"
#include "handles/SSHCall.h"
#include "handles/SSHCallLimits.h"
#include "handles/SSHFailure.h"
#include "sftp/SFTPCall.h"
#include "sftp/SFTPQueueFiles.h"

#include <algorithm>
#include <exception>
#include <tuple>
#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::FailureSource;

namespace {

using Clock = std::chrono::steady_clock;

// How long a server may take to open a channel.
constexpr std::chrono::seconds openingLimit{100};

// How long nobody need be asked whether to go on.
constexpr std::chrono::milliseconds longestWait{100};

} // namespace

/// A call of pump(). Sees to it that descriptor() tells afterwards of what is left to do.
class SFTPQueue::Pumping
{
public:
    explicit Pumping(SFTPQueue& queue) noexcept
        : queue_(queue)
    {
        queue_.isPumping_ = true;
    }

    Pumping(const Pumping&) = delete;
    Pumping& operator=(const Pumping&) = delete;

    ~Pumping()
    {
        queue_.isPumping_ = false;
        const bool isThrown = std::uncaught_exceptions() > exceptions_;
        if (isThrown || !queue_.ready_.empty() || !queue_.answers_.empty()) {
            queue_.wakeUp_.signal();
        }
    }

private:
    SFTPQueue& queue_;
    int exceptions_ = std::uncaught_exceptions();
};

std::unique_ptr<SFTPQueue> SFTPQueue::create(std::shared_ptr<SSHHandleSFTPSession> sftp,
                                             const FileSystem::FileSystem2& system,
                                             std::shared_ptr<const std::atomic<bool>> isAlive,
                                             const GoesOn& goesOn)
{
    std::unique_ptr<SFTPQueue> queue(new SFTPQueue(std::move(sftp), system, std::move(isAlive)));
    return queue->open(goesOn) ? std::move(queue) : nullptr;
}

SFTPQueue::SFTPQueue(std::shared_ptr<SSHHandleSFTPSession> sftp,
                     const FileSystem::FileSystem2& system,
                     std::shared_ptr<const std::atomic<bool>> isAlive)
    : sftp_(std::move(sftp))
    , system_(system)
    , isAlive_(std::move(isAlive))
    , extra_(std::make_shared<ExtraChannels>(ExtraChannels{1, 0, 0}))
{}

SFTPQueue::~SFTPQueue()
{
    try {
        const auto lock = sftp_->getLock();
        leaveSpare();
        countExtraLanes(0);
        --extra_->users;
    } catch (...) {
        // Without the lock no channel is left to the next queue, which opens one of its own.
    }
    // Breaks cycles of shared pointers: what waits for a file or a lane owns it, and is owned by
    // it.
    for (const auto& open : spreading_) {
        open->held.clear();
    }
    for (const Lane& lane : lanes_) {
        lane->waiting.clear();
        lane->connection.reset();
    }
}

void SFTPQueue::noteServer(ssh_session session)
{
    server_ = sftpServerKindOf(session);
    libsshSendsTargetFirst_ = ssh_get_openssh_version(session) != 0;
}

/// A command that is refused a channel meanwhile waits for one.
class SFTPQueue::OpeningMark
{
public:
    explicit OpeningMark(SSHHandleSFTPSession& sftp)
        : sftp_(sftp)
    {
        const auto lock = sftp.getLock();
        if (const SSHHandleSession* const session = sftp.isValid() ? sftp.getSession() : nullptr) {
            extra_ = session->extraChannels();
            ++extra_->opening;
        }
    }

    OpeningMark(const OpeningMark&) = delete;
    OpeningMark& operator=(const OpeningMark&) = delete;

    ~OpeningMark()
    {
        try {
            const auto lock = sftp_.getLock();
            if (extra_ != nullptr) {
                --extra_->opening;
            }
        } catch (...) {
            // Without the lock commands wait in vain later on, and are refused then.
        }
    }

private:
    SSHHandleSFTPSession& sftp_;
    std::shared_ptr<ExtraChannels> extra_;
};

bool SFTPQueue::open(const GoesOn& goesOn)
{
    {
        const OpeningMark mark(*sftp_);
        if (!takeSpare(goesOn) && !(!isGivenUp_ && connect() && awaitServer(goesOn))) {
            return isGivenUp_ && fail(FailureCode::Cancelled);
        }
        joinUsers();
    }
    const auto offers = [this](const SFTPExtension& extension) {
        return lanes_.front()->connection->offers(extension);
    };
    const bool isLikeOpenSsh =
        server_ == SFTPServerKind::OpenSsh || server_ == SFTPServerKind::Dropbear;
    replaces_ = offers(posixRenameExtension);
    tellsVolumes_ = offers(statvfsExtension);
    setsUnfollowed_ = offers(lsetstatExtension);
    isKnownToRefuse_ = isLikeOpenSsh && replaces_ && tellsVolumes_ && offers(hardlinkExtension) &&
                       offers(fsyncExtension) && offers(lsetstatExtension);
    if (offers(limitsExtension)) {
        askLimits();
    }
    return true;
}

/// From now on it is asked to give back what it has beyond one channel.
void SFTPQueue::joinUsers()
{
    const auto lock = sftp_->getLock();
    if (SSHHandleSession* const session = sftp_->isValid() ? sftp_->getSession() : nullptr) {
        extra_ = session->extraChannels();
        timesAsked_ = extra_->timesAsked;
        ++extra_->users;
    }
}

/// Goes on with the channel that an earlier queue of the file system has left.
bool SFTPQueue::takeSpare(const GoesOn& goesOn)
{
    auto lock = sftp_->getLock();
    // Only leaveSpare() keeps any.
    std::unique_ptr<SFTPConnection> connection(
        static_cast<SFTPConnection*>(sftp_->takeSpare().release()));
    if (connection == nullptr) {
        return false;
    }
    const auto rested = connection->resume(wakeUp_);
    if (connection->isOver()) {
        return false;
    }
    noteServer(ssh_channel_get_session(connection->channel().getResource()));
    lock.reset();
    if (rested > SSHCallLimits::trust() && !isAnswering(*connection, goesOn)) {
        return false;
    }
    lanes_.push_back(std::make_shared<SFTPLane>(std::move(connection)));
    return true;
}

/// A server may close a channel that is not used for a while, or end the program that runs on it.
/// To ask takes one round trip, where opening another one takes two.
bool SFTPQueue::isAnswering(SFTPConnection& connection, const GoesOn& goesOn)
{
    bool isAnswered = false;
    {
        const auto lock = connection.channel().getLock();
        connection.send(
            [](SFTPPacketWriter& writer, std::uint32_t id) { writer.realpath(id, "."); }, nullptr);
    }
    const bool isInTime = waitUntil(connection, goesOn, [&] {
        isAnswered = connection.phase() == SFTPConnection::Phase::Ready;
        return !isAnswered || connection.inFlight() == 0;
    });
    const auto lock = connection.channel().getLock();
    static_cast<void>(connection.takeAnswered());
    return isInTime && isAnswered;
}

/// Leaves a channel to the next queue of the file system that is as good as new.
void SFTPQueue::leaveSpare()
{
    // mod_sftp disconnects who has too many, where others refuse one.
    if (pending_ > 0 || server_ == SFTPServerKind::ModSftp) {
        return;
    }
    const auto lock = sftp_->getLock();
    const auto spare = std::find_if(lanes_.begin(), lanes_.end(), [](const Lane& lane) {
        return lane->handles == 0 && lane->waiting.empty() && lane->connection->isAtRest();
    });
    if (spare == lanes_.end() || !sftp_->isValid() || sftp_->isLost()) {
        return;
    }
    (*spare)->connection->rest();
    sftp_->keepSpare(std::move((*spare)->connection));
    lanes_.erase(spare);
}

bool SFTPQueue::connect()
{
    const auto lock = sftp_->getLock();
    SSHHandleSession* const session = sftp_->getSession();
    if (session == nullptr || session->getResource() == nullptr) {
        return failForLostSftp({});
    }
    noteServer(session->getResource());
    auto connection = SFTPConnection::create(*session, wakeUp_, true);
    if (connection == nullptr) {
        return noteTransportFailure(*session, FailureCode::NoResources);
    }
    lanes_.push_back(std::make_shared<SFTPLane>(std::move(connection)));
    return true;
}

bool SFTPQueue::awaitServer(const GoesOn& goesOn)
{
    SFTPConnection& connection = *lanes_.front()->connection;
    // Not asked again: without the lock, another thread may take in the server's version.
    bool isRefused = false;
    const bool isInTime = waitUntil(connection, goesOn, [&] {
        isRefused = connection.isOver();
        return isRefused || connection.phase() == SFTPConnection::Phase::Ready;
    });
    if (isRefused) {
        return fail(FailureCode::Denied, FailureSource::Transport, 0, connection.error());
    }
    return isInTime || isGivenUp_
               ? isInTime
               : fail(FailureCode::TimedOut, "the server does not open a channel");
}

/// \param isDone is called under the lock. False: it was not within the limit, or nobody waits.
template <class IsDone>
bool SFTPQueue::waitUntil(SFTPConnection& connection, const GoesOn& goesOn, IsDone isDone)
{
    const auto deadline = Clock::now() + openingLimit;
    const auto look = [&] {
        const auto lock = connection.channel().getLock();
        wakeUp_.clear();
        connection.advance();
        connection.takeIn();
        connection.settle();
        return isDone();
    };
    while (!look()) {
        isGivenUp_ = goesOn && !goesOn();
        if (isGivenUp_ || Clock::now() >= deadline) {
            return false;
        }
        wakeUp_.wait(goesOn ? longestWait : openingLimit);
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
    return isFar_ ? SFTPLane::fairShare * mostChannels(server_) : SFTPLane::fairShare;
}

int SFTPQueue::do_descriptor() const noexcept
{
    return wakeUp_.descriptor();
}

void SFTPQueue::do_wake() noexcept
{
    wakeUp_.signal();
}

void SFTPQueue::later(std::function<void()> work)
{
    ready_.push_back(std::move(work));
    tellOfWork();
}

void SFTPQueue::ask(Write write, Handler handler)
{
    askAny([write = std::move(write), handler = std::move(handler)](const Lane& lane) mutable {
        lane->connection->send(write, std::move(handler));
    });
}

void SFTPQueue::askAny(std::function<void(const Lane&)> send)
{
    waiting_.push_back({++lastPlace_, std::move(send)});
    tellOfWork();
}

void SFTPQueue::askOn(const Lane& lane, Write write, Handler handler)
{
    waitFor(lane,
            [&lane = *lane, write = std::move(write), handler = std::move(handler)]() mutable {
                lane.connection->send(write, std::move(handler));
            });
}

std::uint64_t SFTPQueue::waitFor(const Lane& lane, std::function<void()> send)
{
    lane->waiting.push_back({++lastPlace_, std::move(send)});
    tellOfWork();
    return lastPlace_;
}

void SFTPQueue::goOnWith(const Lane& lane, std::uint64_t place, std::function<void()> send)
{
    lane->waiting.push_front({place, std::move(send)});
}

void SFTPQueue::tellOfWork()
{
    if (!isPumping_) {
        wakeUp_.signal();
    }
}

std::size_t SFTPQueue::do_pump(std::chrono::milliseconds limit)
{
    const Pumping pumping(*this);
    const auto deadline = deadlineAfter(Clock::now(), limit);
    completed_ = 0;
    for (bool hasLooked = false;; hasLooked = true) {
        callReady();
        handleAnswers();
        const auto now = Clock::now();
        // Answers may come for as long as a large range is being read.
        const bool isLate = hasLooked && now >= deadline;
        if (completed_ > 0 || pending_ == 0 || isLate) {
            // What was started by the completions goes out at once.
            static_cast<void>(advance());
            return completed_;
        }
        if (!advance() && !releaseParked() && now < deadline) {
            wakeUp_.wait(std::chrono::ceil<std::chrono::milliseconds>(deadline - now));
        }
    }
}

void SFTPQueue::callReady()
{
    // Completions may make more work ready, which is done in the same call.
    while (!ready_.empty()) {
        const auto work = std::move(ready_.front());
        ready_.pop_front();
        work();
    }
}

void SFTPQueue::handleAnswers()
{
    while (!answers_.empty()) {
        const auto next = std::move(answers_.front());
        answers_.pop_front();
        next.handler(next.answer);
    }
}

bool SFTPQueue::advance()
{
    wakeUp_.clear();
    const auto lock = sftp_->getLock();
    endIfAbandoned();
    spreadFiles();
    sendWaiting();
    takeIn();
    // What has come may have made room for more.
    if (dispatchOwn() || dispatchAny()) {
        sendWaiting();
    }
    const auto now = Clock::now();
    for (const Lane& lane : lanes_) {
        for (auto& answered : lane->connection->takeAnswered()) {
            answers_.push_back(std::move(answered));
            lane->lastUsed = now;
        }
    }
    openLanes();
    giveBackLanes();
    return !answers_.empty();
}

} // namespace Tarnis
