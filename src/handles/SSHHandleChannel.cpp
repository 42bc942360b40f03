#include "handles/SSHHandleChannel.h"

#include "handles/SSHCall.h"
#include "handles/SSHChannelClose.h"

#include <Tarnis/SessionBlockingGuard.h>

namespace Tarnis {

std::shared_ptr<SSHHandleChannel> SSHHandleChannel::create(SSHHandleSession& session)
{
    const auto lock = session.getLock();
    session.reapAbandoned();
    ssh_channel channel = callLocked(session, ssh_channel_new);
    if (channel == nullptr) {
        return nullptr;
    }
    return makeChildHandle<SSHHandleChannel>(session, channel);
}

SSHHandleChannel::SSHHandleChannel(SSHHandleSession* session, ssh_channel channel)
    : SSHHandleObjectWrapper(session, channel)
{}

SSHHandleChannel::~SSHHandleChannel()
{
    invalidateQuietly();
}

bool SSHHandleChannel::renew()
{
    const auto lock = getLock();
    if (!isValid()) {
        return false;
    }
    ssh_channel fresh = ssh_channel_new(ssh_channel_get_session(getResource()));
    if (fresh == nullptr) {
        return false;
    }
    releaseWithoutWaiting(exchangeResource(fresh));
    opened_ = false;
    return true;
}

void SSHHandleChannel::watchExit()
{
    const auto lock = getLock();
    if (exit_ == nullptr) {
        exit_ = callLocked(
            *this, [](ssh_channel channel) { return std::make_unique<ChannelExit>(channel); });
    }
}

void SSHHandleChannel::readInto(ChannelInputReceiver& receiver)
{
    const auto lock = getLock();
    input_ = callLocked(*this, [&receiver](ssh_channel channel) {
        return std::make_unique<ChannelInput>(channel, receiver);
    });
}

void SSHHandleChannel::ignoreInput()
{
    const auto lock = getLock();
    input_.reset();
}

void SSHHandleChannel::abandon(const std::shared_ptr<SSHHandleChannel>& channel)
{
    const auto lock = channel->getLock();
    auto* const session = channel->getSession();
    if (session != nullptr && channel->isValid()) {
        session->abandon(channel);
    } else {
        channel->deleteMe();
    }
}

void SSHHandleChannel::do_invalidate()
{
    // Past the base that would release the channel in whatever mode the session is in.
    HandleObjectCore::do_invalidate(); // NOLINT(bugprone-parent-virtual-call)
    releaseWithoutWaiting(exchangeResource(nullptr));
}

/// To be called under the lock.
void SSHHandleChannel::releaseWithoutWaiting(ssh_channel channel) noexcept
{
    exit_.reset();
    input_.reset();
    const SessionBlockingGuard guard(channel, 0);
    queueChannelClose(channel);
    release(channel);
}

} // namespace Tarnis
