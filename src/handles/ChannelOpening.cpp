#include "handles/ChannelOpening.h"

#include "handles/SSHCallLimits.h"

#include <Tarnis/SessionBlockingGuard.h>

#include <thread>
#include <utility>

namespace Tarnis {

namespace {

// How long a server may take to close a channel. Then it is asked all the same.
constexpr std::chrono::seconds closingLimit{5};

// The end of what ran on a channel that was given back is not seen here.
constexpr std::chrono::milliseconds untilNextTry{20};

} // namespace

ChannelOpening::ChannelOpening(SSHHandleChannel& channel, Renew renew, bool isOneOfSeveral)
    : channel_(channel)
    , renew_(std::move(renew))
    , isOneOfSeveral_(isOneOfSeveral)
{}

int ChannelOpening::advance()
{
    if (step_ == Step::MakingRoom) {
        if (!hasRoom()) {
            return SSH_AGAIN;
        }
        step_ = Step::AskingAgain;
    }
    const int result = ask();
    const bool isRefused = result != SSH_OK && result != SSH_AGAIN;
    return isRefused && asksAgain() ? SSH_AGAIN : result;
}

int ChannelOpening::finish()
{
    asksOthers_ = false;
    int result = advance();
    while (result == SSH_AGAIN && step_ == Step::MakingRoom) {
        std::this_thread::sleep_for(SSHCallLimits::pause);
        result = advance();
    }
    return result;
}

// On a session that was never connected, libssh crashes.
int ChannelOpening::ask()
{
    const ssh_channel channel = channel_.getResource();
    const bool isConnected = ssh_is_connected(ssh_channel_get_session(channel)) != 0;
    const int result = isConnected ? ssh_channel_open_session(channel) : SSH_ERROR;
    isAsked_ = result == SSH_AGAIN;
    if (result == SSH_OK) {
        channel_.markOpened();
    }
    return result;
}

/// False: nothing is to be given up, or it was given up in vain.
bool ChannelOpening::asksAgain()
{
    auto* const session = channel_.getSession();
    // One that was closed cannot be opened again, whatever the server would say.
    const bool isRefused = renew_ != nullptr && !channel_.wasOpened();
    if (!isRefused || session == nullptr || ssh_is_connected(session->getResource()) == 0) {
        return false;
    }
    const auto now = Clock::now();
    if (step_ == Step::Asking) {
        deadline_ = now + closingLimit;
        nextTry_ = now;
    } else {
        nextTry_ = now + untilNextTry;
    }
    const bool isWorthIt =
        step_ == Step::Asking ? makeRoom(*session) : areOthersAsked_ && nextTry_ < deadline_;
    if (!isWorthIt || !renew_()) {
        return false;
    }
    step_ = Step::MakingRoom;
    return true;
}

bool ChannelOpening::makeRoom(SSHHandleSession& session)
{
    auto& extra = *session.extraChannels();
    // What one of them, or a command before this one, has closed just now may count over there.
    const std::size_t others = extra.users + (isOneOfSeveral_ ? 0 : extra.opening);
    areOthersAsked_ = asksOthers_ && others > 0;
    if (areOthersAsked_) {
        ++extra.timesAsked;
        extraBefore_ = extra.count;
    }
    return session.closeSpares() || areOthersAsked_;
}

/// Takes in what has come for any channel.
bool ChannelOpening::hasRoom()
{
    auto* const session = channel_.getSession();
    const ssh_channel channel = channel_.getResource();
    const SessionBlockingGuard guard(channel, 0);
    const bool hasEnded = ssh_channel_poll(channel, 0) == SSH_ERROR || session == nullptr;
    const auto now = Clock::now();
    if (hasEnded || now >= deadline_) {
        return true;
    }
    // One is enough, and some cannot be given back before the file on it is closed.
    const std::size_t extra = session->extraChannels()->count;
    const bool isGivenBack = !areOthersAsked_ || extra == 0 || extra < extraBefore_;
    return session->areSparesClosed() && isGivenBack && now >= nextTry_;
}

} // namespace Tarnis
