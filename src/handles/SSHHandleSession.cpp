#include "handles/SSHHandleSession.h"

#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSFTPSession.h"

#include <Tarnis/SessionBlockingGuard.h>

#include <algorithm>
#include <utility>

namespace Tarnis {

SSHHandleSession::SSHHandleSession(ssh_session session)
    : SSHHandleObjectWrapper(nullptr, session)
{}

SSHHandleSession::~SSHHandleSession()
{
    // The base's destructor could not reach this class's do_invalidate() any more.
    invalidateQuietly();
}

void SSHHandleSession::retireChildren()
{
    const auto lock = getLock();
    const SessionBlockingGuard guard(getResource(), 0);
    invalidateChildren();
    abandoned_.clear();
    closing_.clear();
}

void SSHHandleSession::abandon(std::shared_ptr<SSHHandleChannel> channel)
{
    const auto lock = getLock();
    abandoned_.push_back(std::move(channel));
}

void SSHHandleSession::reapAbandoned()
{
    const auto lock = getLock();
    const SessionBlockingGuard guard(getResource(), 0);
    const auto answered = std::partition(
        abandoned_.begin(), abandoned_.end(), [](const std::shared_ptr<SSHHandleChannel>& channel) {
            // An opening in flight is not begun again.
            return channel->isValid() &&
                   ssh_channel_open_session(channel->getResource()) == SSH_AGAIN;
        });
    std::for_each(answered, abandoned_.end(), [](const auto& channel) { channel->deleteMe(); });
    abandoned_.erase(answered, abandoned_.end());
}

void SSHHandleSession::retireLostSftpSessions()
{
    const auto lock = getLock();
    const SessionBlockingGuard guard(getResource(), 0);
    // Iterates over a copy, since each child removes itself from the collection when it is
    // invalidated.
    const auto candidates = children();
    for (const auto& child : candidates) {
        auto* const sftp = dynamic_cast<SSHHandleSFTPSession*>(child.get());
        if (sftp != nullptr && sftp->isLost()) {
            sftp->deleteMe();
        }
    }
}

void SSHHandleSession::markSftpSessionsLost() const
{
    for (const auto& child : children()) {
        const auto* const sftp = dynamic_cast<const SSHHandleSFTPSession*>(child.get());
        if (sftp != nullptr) {
            sftp->lossMark() = true;
        }
    }
}

void SSHHandleSession::replaceSession(ssh_session fresh)
{
    const auto lock = getLock();
    retireChildren();
    release(exchangeResource(fresh));
}

bool SSHHandleSession::mayHaveUnreadOutput() const
{
    return std::any_of(children().begin(), children().end(), [](const auto& child) {
        const auto* const channel = dynamic_cast<const SSHHandleChannel*>(child.get());
        return channel != nullptr && channel->wasOpened() && !channel->isReadAsItComes() &&
               ssh_channel_is_eof(channel->getResource()) == 0;
    });
}

std::size_t SSHHandleSession::openChannels() const
{
    const auto isOpen = [](const auto& child) {
        const auto* const channel = dynamic_cast<const SSHHandleChannel*>(child.get());
        return channel == nullptr || (channel->isValid() && !channel->isOver());
    };
    return abandoned_.size() +
           static_cast<std::size_t>(std::count_if(children().begin(), children().end(), isOpen));
}

bool SSHHandleSession::hasSpares() const
{
    return std::any_of(children().begin(), children().end(), [](const auto& child) {
        const auto* const sftp = dynamic_cast<const SSHHandleSFTPSession*>(child.get());
        return sftp != nullptr && sftp->hasSpare();
    });
}

bool SSHHandleSession::closeSpares()
{
    bool isAnyClosed = false;
    for (const auto& child : children()) {
        auto* const sftp = dynamic_cast<SSHHandleSFTPSession*>(child.get());
        auto spare = sftp != nullptr ? sftp->takeSpare() : nullptr;
        if (spare != nullptr) {
            spare->close();
            closing_.push_back(std::move(spare));
            isAnyClosed = true;
        }
    }
    return isAnyClosed;
}

bool SSHHandleSession::areSparesClosed()
{
    const auto closed = std::partition(closing_.begin(), closing_.end(),
                                       [](const auto& spare) { return !spare->isClosed(); });
    closing_.erase(closed, closing_.end());
    return closing_.empty();
}

void SSHHandleSession::do_invalidate()
{
    if (getResource() != nullptr) {
        retireChildren();
    }
    text_.reset();
    SSHHandleObjectWrapper::do_invalidate();
}

} // namespace Tarnis
