#include "handles/ChannelsOfOthers.h"

#include "handles/SSHHandleChannel.h"

#include <thread>
#include <utility>

namespace Tarnis {

namespace {

constexpr std::chrono::seconds givingLimit{5};
constexpr std::chrono::milliseconds untilNextTry{20};
constexpr std::chrono::milliseconds pause{1};

} // namespace

ChannelsOfOthers::ChannelsOfOthers(SSHHandleChannel& channel) noexcept
    : channel_(channel)
{}

bool ChannelsOfOthers::awaitOne()
{
    if (!ask()) {
        return false;
    }
    while (!isWorthATry()) {
        if (Clock::now() >= deadline_) {
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
    return true;
}

bool ChannelsOfOthers::ask()
{
    const auto lock = channel_.getLock();
    const SSHHandleSession* const session = channel_.getSession();
    const bool isRefused = session != nullptr && channel_.isValid() && !channel_.wasOpened() &&
                           ssh_is_connected(session->getResource()) != 0;
    if (!isRefused) {
        return false;
    }
    nextTry_ = Clock::now();
    if (std::exchange(areAsked_, true)) {
        nextTry_ += untilNextTry;
        return nextTry_ < deadline_;
    }
    ExtraChannels& extra = *session->extraChannels();
    before_ = extra.count;
    deadline_ = nextTry_ + givingLimit;
    ++extra.timesAsked;
    return extra.users + extra.opening > 0;
}

bool ChannelsOfOthers::isWorthATry() const
{
    const auto lock = channel_.getLock();
    const SSHHandleSession* const session = channel_.getSession();
    if (session == nullptr) {
        // The next try says so.
        return true;
    }
    const std::size_t count = session->extraChannels()->count;
    return (count == 0 || count < before_) && Clock::now() >= nextTry_;
}

} // namespace Tarnis
