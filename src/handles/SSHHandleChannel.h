#pragma once

#include "handles/ChannelExit.h"
#include "handles/ChannelInput.h"
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

    /// The session that the channel is of; null once it is gone. To be called under the lock.
    SSHHandleSession* getSession() const noexcept
    {
        return static_cast<SSHHandleSession*>(getParent());
    }

    /// Hands the libssh channel over to whoever owns it from now on; the handle is invalid then.
    /// Under the lock.
    ssh_channel takeChannel() noexcept { return exchangeResource(nullptr); }

    /// Gives up a channel whose opening the server has not answered yet: the session closes it once
    /// it has.
    static void abandon(const std::shared_ptr<SSHHandleChannel>& channel);

    /// To be told when the channel was opened. Under the lock, as the next one.
    void markOpened() noexcept { opened_ = true; }

    /// Whether the channel was ever opened, and so has a number that it may be closed by.
    bool wasOpened() const noexcept { return opened_; }

    /// Whether the channel was opened and is closed again. Under the lock.
    bool isOver() const noexcept { return opened_ && ssh_channel_is_closed(getResource()) != 0; }

    /// Begins to take down how the server says that the command ended. To be called before the
    /// channel is opened; once is enough for each channel. Throws handle_fatal_error("invalid")
    /// when the handle is invalid.
    void watchExit();

    /// What the server has said of the command's end; null when nobody watches. To be called under
    /// the lock.
    const ChannelExit* getExit() const noexcept { return exit_.get(); }

    /// Hands over what comes on the channel; to be called before it is opened. The receiver is told
    /// when the channel is given up, and has to live until then or until ignoreInput(). Throws
    /// handle_fatal_error("invalid") when the handle is invalid.
    void readInto(ChannelInputReceiver& receiver);

    /// Hands nothing over any more.
    void ignoreInput();

    /// Whether what comes is handed over, so that nothing is left to be read. To be called under
    /// the lock.
    bool isReadAsItComes() const noexcept { return input_ != nullptr; }

    /// Whether the server has closed a channel whose input is handed over. To be called under the
    /// lock.
    bool isClosedByServer() const noexcept { return input_ != nullptr && input_->isClosed(); }

    /// To be told when the channel was closed from here. Under the lock.
    void markClosed() noexcept
    {
        if (exit_ != nullptr) {
            exit_->markClosed();
        }
    }

protected:
    void do_invalidate() override;

private:
    void releaseWithoutWaiting(ssh_channel channel) noexcept;

    std::unique_ptr<ChannelExit> exit_;
    std::unique_ptr<ChannelInput> input_;
    bool opened_ = false;
};

} // namespace Tarnis
