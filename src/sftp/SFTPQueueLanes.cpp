// How a queue spreads its requests over channels, and how many of these it has.

#include "sftp/SFTPQueue.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace Tarnis {

namespace {

using Clock = SFTPLane::Clock;

// Nearer than that, one channel carries whatever the processors do.
constexpr std::chrono::milliseconds nearest{2};

// What one channel has on its way at least: libssh 0.10 lets a server send 1.25 MiB ahead, servers
// take 2 MiB ahead as a rule.
constexpr std::uint64_t shareOfALane = std::uint64_t{1} << 20U;

// A lane that nothing was sent on for so long is given back.
constexpr std::chrono::seconds longestRest{2};

} // namespace

void SFTPQueue::sendWaiting()
{
    do {
        dispatch();
        sendOnLanes();
        // What was sent has made room for more.
    } while (dispatchOwn() || dispatchAny());
}

void SFTPQueue::sendOnLanes()
{
    for (const Lane& lane : lanes_) {
        lane->connection->advance();
        if (lane->bytes > shareOfALane) {
            lane->connection->keepWide();
        }
    }
}

/// Takes in some of what has come, so that who pumps is not kept for as long as more does.
void SFTPQueue::takeIn()
{
    const auto reading = std::find_if(lanes_.begin(), lanes_.end(),
                                      [](const Lane& lane) { return !lane->connection->isOver(); });
    if (reading != lanes_.end()) {
        (*reading)->connection->takeIn();
    }
    for (const Lane& lane : lanes_) {
        lane->connection->settle();
    }
}

/// Ends the connections once the file system or its SFTP session has gone.
void SFTPQueue::endIfAbandoned()
{
    if (*isAlive_ && sftp_->isValid()) {
        return;
    }
    for (const Lane& lane : lanes_) {
        lane->connection->end("the file system has gone");
    }
}

void SFTPQueue::dispatch()
{
    while (dispatchOwn() || dispatchAny()) {
    }
}

/// Sends what only one lane can take, where it was started before what any lane may take.
bool SFTPQueue::dispatchOwn()
{
    bool isAnySent = false;
    for (const Lane& lane : lanes_) {
        auto& waiting = lane->waiting;
        while (!waiting.empty() && lane->hasRoom() &&
               (waiting_.empty() || waiting.front().place < waiting_.front().place)) {
            // Taken out first: send() may queue the next piece at the front.
            const auto send = std::move(waiting.front().send);
            waiting.pop_front();
            send();
            isAnySent = true;
        }
    }
    return isAnySent;
}

bool SFTPQueue::dispatchAny()
{
    const Lane lane = waiting_.empty() ? nullptr : leastLoaded();
    if (lane == nullptr) {
        return false;
    }
    const auto send = std::move(waiting_.front().send);
    waiting_.pop_front();
    send(lane);
    return true;
}

/// The lane that takes the next request; null: none has room. One that is over takes it, and fails
/// it, where no other is left.
SFTPQueue::Lane SFTPQueue::leastLoaded() const
{
    const auto load = [](const SFTPLane& lane) {
        return std::make_tuple(lane.bytes, lane.handles, lane.connection->inFlight());
    };
    const bool isAnyStaying = std::any_of(lanes_.begin(), lanes_.end(), [](const Lane& lane) {
        return lane->isReady() && !lane->isLeaving;
    });
    Lane best;
    bool isAnyLeft = false;
    for (const Lane& lane : lanes_) {
        isAnyLeft = isAnyLeft || !lane->connection->isOver();
        const bool isToTake =
            lane->isReady() && lane->hasRoomForAny() && !(isAnyStaying && lane->isLeaving);
        if (isToTake && (best == nullptr || load(*lane) < load(*best))) {
            best = lane;
        }
    }
    return isAnyLeft ? best : lanes_.front();
}

/// Opens as many channels together as are worth it. Nobody waits for them: they are used once they
/// are open.
void SFTPQueue::openLanes()
{
    const auto nearestOf = [](const Lane& left, const Lane& right) {
        return left->connection->roundTrip() < right->connection->roundTrip();
    };
    const auto roundTrip =
        (*std::min_element(lanes_.begin(), lanes_.end(), nearestOf))->connection->roundTrip();
    isFar_ = roundTrip >= nearest && roundTrip != std::chrono::nanoseconds::max();
    SSHHandleSession* const session = sftp_->isValid() ? sftp_->getSession() : nullptr;
    if (!isFar_ || !opensMore_ || session == nullptr) {
        return;
    }
    const std::size_t wanted = std::min(lanesWanted(), lanesAllowed(*session));
    while (lanes_.size() < wanted) {
        auto connection = SFTPConnection::create(*session, wakeUp_, false);
        if (connection == nullptr) {
            opensMore_ = false;
            return;
        }
        lanes_.push_back(std::make_shared<SFTPLane>(std::move(connection)));
        lanes_.back()->connection->advance();
    }
}

std::size_t SFTPQueue::lanesWanted() const
{
    std::uint64_t bytes = 0;
    std::size_t handles = 0;
    for (const Lane& lane : lanes_) {
        bytes += lane->bytes;
        handles += lane->handles;
    }
    // Most files stay on the lane that they were opened on.
    const std::uint64_t inUse = isAnySpread() ? bytes / shareOfALane : handles;
    const std::uint64_t byBytes = std::min<std::uint64_t>(bytes / shareOfALane, inUse);
    const std::uint64_t byCount =
        1 + (waiting_.size() + SFTPLane::fairShare - 1) / SFTPLane::fairShare;
    return static_cast<std::size_t>(std::max(byBytes, byCount));
}

/// Of what servers allow, something is left for commands and for other queues.
std::size_t SFTPQueue::lanesAllowed(const SSHHandleSession& session) const
{
    const std::size_t most = mostChannels(server_);
    const std::size_t open = session.openChannels();
    return lanes_.size() + (most > open ? most - open : 0);
}

std::size_t SFTPQueue::mostChannels(SFTPServerKind server) noexcept
{
    // OpenSSH allows ten sessions and refuses more; ProFTPD allows ten and disconnects then. What
    // others do is not known.
    const bool isGenerous = server == SFTPServerKind::OpenSsh || server == SFTPServerKind::Dropbear;
    return isGenerous ? 8 : 4;
}

/// Lets go of the lanes that are over, or not worth it any more; of one at least never.
void SFTPQueue::giveBackLanes()
{
    leaveLanesToOthers();
    for (std::size_t index = lanes_.size(); index-- > 0 && lanes_.size() > 1;) {
        const Lane lane = lanes_[index];
        if (lane->connection->phase() == SFTPConnection::Phase::Refused) {
            noteRefusedLane();
        }
        if (isToBeGivenBack(*lane)) {
            lanes_.erase(lanes_.begin() + static_cast<std::ptrdiff_t>(index));
            lane->connection.reset();
        }
    }
    countExtraLanes(lanes_.size() - 1);
}

/// Gives up all lanes but one when somebody else asks for a channel and gets none.
void SFTPQueue::leaveLanesToOthers()
{
    if (std::exchange(timesAsked_, extra_->timesAsked) == extra_->timesAsked) {
        return;
    }
    opensMore_ = false;
    const auto first = std::find_if(lanes_.begin(), lanes_.end(),
                                    [](const Lane& lane) { return !lane->connection->isOver(); });
    for (const Lane& lane : lanes_) {
        lane->isLeaving = first != lanes_.end() && lane != *first;
    }
}

void SFTPQueue::countExtraLanes(std::size_t count)
{
    extra_->count += count - countedLanes_;
    countedLanes_ = count;
}

bool SFTPQueue::isToBeGivenBack(const SFTPLane& lane) const
{
    if (!lane.isIdle()) {
        return false;
    }
    if (lane.connection->isOver()) {
        return true;
    }
    const bool isAnotherReady =
        std::any_of(lanes_.begin(), lanes_.end(), [&lane](const Lane& other) {
            return other.get() != &lane && other->isReady() && !other->isLeaving;
        });
    const bool isAtRest =
        lanes_.size() > lanesWanted() && Clock::now() - lane.lastUsed > longestRest;
    return lane.isReady() && isAnotherReady && (lane.isLeaving || pending_ == 0 || isAtRest);
}

/// The server has no more channels than it has given: one is left to others, as commands need one
/// too.
void SFTPQueue::noteRefusedLane()
{
    if (!std::exchange(opensMore_, false)) {
        return;
    }
    const auto newest = std::find_if(lanes_.rbegin(), lanes_.rend(),
                                     [](const Lane& lane) { return !lane->connection->isOver(); });
    if (newest != lanes_.rend() && *newest != lanes_.front()) {
        (*newest)->isLeaving = true;
    }
}

} // namespace Tarnis
