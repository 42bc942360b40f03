#include "handles/ChannelOpening.h"

#include "handles/SSHCallLimits.h"

#include <Tarnis/SessionBlockingGuard.h>

#include <thread>
#include <utility>

namespace Tarnis {

namespace {

// How long a server may take to close a channel. Then it is asked all the same.
constexpr std::chrono::seconds closingLimit{2};

} // namespace

ChannelOpening::ChannelOpening(SSHHandleChannel& channel, Renew renew)
    : channel_(channel)
    , renew_(std::move(renew))
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
    return isRefused && step_ == Step::Asking && makeRoom() ? SSH_AGAIN : result;
}

int ChannelOpening::finish()
{
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

/// False: nothing is to be given up, or there is no new channel.
bool ChannelOpening::makeRoom()
{
    auto* const session = channel_.getSession();
    const bool isConnected = session != nullptr && ssh_is_connected(session->getResource()) != 0;
    if (renew_ == nullptr || !isConnected || !session->closeSpares() || !renew_()) {
        return false;
    }
    step_ = Step::MakingRoom;
    deadline_ = Clock::now() + closingLimit;
    return true;
}

/// Takes in what has come for any channel.
bool ChannelOpening::hasRoom()
{
    auto* const session = channel_.getSession();
    const ssh_channel channel = channel_.getResource();
    const SessionBlockingGuard guard(channel, 0);
    const bool hasEnded = ssh_channel_poll(channel, 0) == SSH_ERROR;
    return hasEnded || session == nullptr || session->areSparesClosed() ||
           Clock::now() >= deadline_;
}

} // namespace Tarnis
