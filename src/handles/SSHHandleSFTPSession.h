#pragma once

#include "handles/SFTPFlow.h"
#include "handles/SSHHandleObjectWrapper.h"
#include "handles/SSHHandleSession.h"
#include "handles/SpareChannel.h"

#include <FileSystem/HandleObjectGeneric.h>
#include <Tarnis/SSHDefaultDeleter.h>

#include <libssh/libssh.h>
#include <libssh/sftp.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>

namespace Tarnis {

class SSHHandleSFTPSessionFile;

/// Handle of one SFTP session; keeps the handles of the files that are open on it.
class SSHHandleSFTPSession final
    : public SSHHandleObjectWrapper<FileSystem::HandleObjectCompositeEx<
          SSHHandleSFTPSession, sftp_session_struct, ssh_default_deleter<sftp_session_struct>,
          SSHHandleSession>>
{
public:
    /// Takes the SFTP session over.
    SSHHandleSFTPSession(SSHHandleSession* session, sftp_session sftp);
    ~SSHHandleSFTPSession() override;

    using HandleObjectCoreComposite::addChild;

    /// Opens a remote file. Blocks until the server has answered. Null: the server refused, or the
    /// connection is lost, or the path has a NUL byte. Throws handle_fatal_error("invalid") when
    /// this handle is invalid.
    /// \param posixFlags as open(2) takes them.
    /// \param mode       permissions of a file that is created.
    std::shared_ptr<SSHHandleSFTPSessionFile> openFile(const std::string& path, int posixFlags,
                                                       mode_t mode);

    /// The session that the SFTP session was made on; null once it is gone. To be called under the
    /// lock, and used for as long as it is held.
    SSHHandleSession* getSession() const noexcept
    {
        return static_cast<SSHHandleSession*>(getParent());
    }

    /// In which order the server takes the two paths of a symbolic link, as far as links that were
    /// made before have shown.
    enum class LinkPathOrder
    {
        Unknown,
        AsLibsshSends,
        Exchanged, ///< libssh must be given the two the other way round.
    };

    LinkPathOrder getLinkPathOrder() const noexcept { return linkPathOrder_; }

    void setLinkPathOrder(LinkPathOrder order) noexcept { linkPathOrder_ = order; }

    /// Whether a link came out wrong and the server would not remove it again.
    bool hasLeftLinks() const noexcept { return leftLinks_; }

    void markLeftLinks() noexcept { leftLinks_ = true; }

    /// Whether the server has described a link as such when it was asked for what stands at a path.
    bool tellsLinks() const noexcept { return tellsLinks_; }

    void markTellsLinks() noexcept { tellsLinks_ = true; }

    /// Whether the channel or the connection was seen at its end: no call can succeed any more. The
    /// handle keeps what it owns, as others may be using it, until it is invalidated.
    bool isLost() const noexcept { return *lost_; }

    /// To be set by whoever sees that end; shared with the open files. The reference is good for
    /// the handle's life.
    std::atomic<bool>& lossMark() const noexcept { return *lost_; }

    const std::shared_ptr<std::atomic<bool>>& sharedLossMark() const noexcept { return lost_; }

    /// What the ranges of its open files share; outlives the handle with those.
    const std::shared_ptr<SFTPFlow>& sharedFlow() const noexcept { return flow_; }

    /// Keeps a channel for whoever comes next, unless there is one already; it goes with this
    /// handle at the latest. Under the lock, as the next two. The handle must be valid.
    void keepSpare(std::unique_ptr<SpareChannel> spare)
    {
        if (spare_ == nullptr) {
            spare_ = std::move(spare);
        }
    }

    bool hasSpare() const noexcept { return spare_ != nullptr; }

    /// The channel that was kept; null: there is none.
    std::unique_ptr<SpareChannel> takeSpare() noexcept { return std::move(spare_); }

protected:
    void do_invalidate() override;

private:
    std::atomic<LinkPathOrder> linkPathOrder_{LinkPathOrder::Unknown};
    std::atomic<bool> leftLinks_{false};
    std::atomic<bool> tellsLinks_{false};
    std::shared_ptr<std::atomic<bool>> lost_ = std::make_shared<std::atomic<bool>>(false);
    std::unique_ptr<SpareChannel> spare_;
    std::shared_ptr<SFTPFlow> flow_ = std::make_shared<SFTPFlow>();
};

} // namespace Tarnis
