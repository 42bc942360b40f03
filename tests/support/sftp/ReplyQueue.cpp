#include "support/sftp/ReplyQueue.h"

#include <utility>

namespace TarnisTest {

namespace {

void moveAll(std::deque<SftpReply>& from, std::deque<SftpReply>& to)
{
    for (SftpReply& reply : from) {
        to.push_back(std::move(reply));
    }
    from.clear();
}

} // namespace

void ReplyQueue::add(SftpReply reply)
{
    const bool ordered =
        script_.order != SftpOrder::AsReceived &&
        (script_.heldRequest == SftpPacket::Any || script_.heldRequest == reply.event.request);
    if (reply.waits || (ordered && script_.order == SftpOrder::AfterNextRequest)) {
        waiting_.push_back(std::move(reply));
    } else if (ordered) {
        gather(std::move(reply));
    } else {
        ready_.push_back(std::move(reply));
    }
}

void ReplyQueue::gather(SftpReply reply)
{
    if (script_.order == SftpOrder::Reversed) {
        gathered_.push_front(std::move(reply));
        if (gathered_.size() >= script_.heldReplies) {
            moveAll(gathered_, ready_);
        }
        return;
    }
    gathered_.push_back(std::move(reply));
    if (gathered_.size() > script_.heldReplies) {
        pickAtRandom();
    }
}

void ReplyQueue::pickAtRandom()
{
    const auto picked =
        gathered_.begin() + static_cast<std::ptrdiff_t>(random_() % gathered_.size());
    ready_.push_back(std::move(*picked));
    gathered_.erase(picked);
}

void ReplyQueue::requestArrived()
{
    moveAll(waiting_, ready_);
}

void ReplyQueue::idle()
{
    while (script_.order == SftpOrder::Shuffled && !gathered_.empty()) {
        pickAtRandom();
    }
    moveAll(gathered_, ready_);
}

void ReplyQueue::restart()
{
    random_.seed(script_.seed);
    moveAll(waiting_, ready_);
    moveAll(gathered_, ready_);
}

std::optional<SftpReply> ReplyQueue::take()
{
    if (ready_.empty()) {
        return {};
    }
    SftpReply reply = std::move(ready_.front());
    ready_.pop_front();
    return reply;
}

} // namespace TarnisTest
