#pragma once

#include "handles/ExtraChannels.h"
#include "handles/SSHHandleObjectWrapper.h"
#include "handles/SpareChannel.h"

#include <FileSystem/HandleObjectGeneric.h>
#include <Tarnis/SSHDefaultDeleter.h>

#include <libssh/libssh.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Tarnis {

class SSHSessionInterface;
class SSHHandleChannel;

/// The root handle of a session: owns the ssh_session, keeps the handles of the channels and SFTP
/// sessions made on it.
class SSHHandleSession final
    : public SSHHandleObjectWrapper<FileSystem::HandleObjectCompositeEx<
          SSHHandleSession, ssh_session_struct, ssh_default_deleter<ssh_session_struct>,
          FileSystem::HandleObjectCoreComposite>>
{
public:
    /// Takes the session over. With a null session the handle is invalid from the start.
    explicit SSHHandleSession(ssh_session session);
    ~SSHHandleSession() override;

    using HandleObjectCoreComposite::addChild;

    /// Retires every channel and SFTP session, as libssh is about to free their memory together
    /// with the connection's; the session itself stays valid. Waits for nothing on the network.
    void retireChildren();

    /// Lets go of the SFTP sessions whose end was seen, so that the server's and our own side of
    /// their channels are free again. To be called outside any call on one of them.
    void retireLostSftpSessions();

    /// Marks the SFTP sessions as lost, as the connection has gone; frees nothing. To be called
    /// under the lock.
    void markSftpSessionsLost() const;

    /// Puts a fresh libssh session in the place of the used one, retiring what was made from that.
    void replaceSession(ssh_session fresh);

    /// Whether anything below may still be read from a connection that has come to its end: false
    /// once every channel that was opened was read to the end of its streams. SFTP has nothing to
    /// read but answers, which nobody waits for any more. To be called under the lock.
    bool mayHaveUnreadOutput() const;

    /// How many channels the server has open for this session, as far as it is known: those that
    /// are being opened, too. To be called under the lock.
    std::size_t openChannels() const;

    void setSessionInterface(SSHSessionInterface* sessionInterface) noexcept
    {
        sessionInterface_ = sessionInterface;
    }

    SSHSessionInterface* getSessionInterface() const noexcept { return sessionInterface_; }

    /// Keeps a channel whose opening the server has not answered yet: it would stay open over there
    /// if nobody were left here to close it.
    void abandon(std::shared_ptr<SSHHandleChannel> channel);

    /// Closes those abandoned channels that have been answered by now.
    void reapAbandoned();

    /// Whether a channel is kept for later. To be called under the lock, as the next two.
    bool hasSpares() const;

    /// Closes the channels that are kept for later, as their places are needed, and waits for
    /// nothing. False: there is none.
    bool closeSpares();

    /// Whether the server has closed them, too.
    bool areSparesClosed();

    /// Shared with those who have any.
    const std::shared_ptr<ExtraChannels>& extraChannels() const noexcept { return extra_; }

protected:
    void do_invalidate() override;

private:
    SSHSessionInterface* sessionInterface_ = nullptr;
    std::optional<std::string> text_;
    std::vector<std::shared_ptr<SSHHandleChannel>> abandoned_;
    std::vector<std::unique_ptr<SpareChannel>> closing_;
    std::shared_ptr<ExtraChannels> extra_ = std::make_shared<ExtraChannels>();
};

} // namespace Tarnis
