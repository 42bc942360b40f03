#pragma once

#include "handles/SSHHandleObjectWrapper.h"
#include "handles/SSHHandleSession.h"

#include <FileSystem/HandleObjectGeneric.h>
#include <Tarnis/SSHDefaultDeleter.h>

#include <libssh/libssh.h>

#include <memory>

namespace Tarnis {

/// Handle of one channel of a session.
class SSHHandleChannel final : public SSHHandleObjectWrapper<FileSystem::HandleObjectGeneric<
                                   ssh_channel_struct, ssh_default_deleter<ssh_channel_struct>,
                                   FileSystem::HandleObjectCore, SSHHandleSession>>
{
public:
    /// Makes a channel on the session and registers its handle there. Null when libssh has no
    /// memory for one. Throws handle_fatal_error("invalid") when the session's handle is invalid.
    static std::shared_ptr<SSHHandleChannel> create(SSHHandleSession& session);

    /// Takes the channel over.
    SSHHandleChannel(SSHHandleSession* session, ssh_channel channel);
    ~SSHHandleChannel() override;

    /// Puts a new libssh channel in the place of one that was closed or refused: libssh opens a
    /// channel only once. False: there is no memory for one, or the handle is invalid; the old
    /// channel is still in place.
    bool renew();

    /// Gives up a channel whose opening the server has not answered yet: the session closes it once
    /// it has.
    static void abandon(const std::shared_ptr<SSHHandleChannel>& channel);

    /// To be told when the channel was opened. Under the lock, as the next one.
    void markOpened() noexcept { opened_ = true; }

    /// Whether the channel was ever opened, and so has a number that it may be closed by.
    bool wasOpened() const noexcept { return opened_; }

protected:
    void do_invalidate() override;

private:
    static void releaseWithoutWaiting(ssh_channel channel) noexcept;

    bool opened_ = false;
};

} // namespace Tarnis
