#pragma once

#include "handles/SSHHandleObjectWrapper.h"
#include "handles/SSHHandleSFTPSession.h"

#include <FileSystem/HandleObjectGeneric.h>
#include <Tarnis/SSHDefaultDeleter.h>

#include <libssh/libssh.h>
#include <libssh/sftp.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace Tarnis {

/// Handle of one open remote file. Invalidated on its own, it closes the file and waits for the
/// server's answer; with its SFTP session, or once that is lost, it only frees memory.
class SSHHandleSFTPSessionFile final
    : public SSHHandleObjectWrapper<
          FileSystem::HandleObjectGeneric<sftp_file_struct, ssh_default_deleter<sftp_file_struct>,
                                          FileSystem::HandleObjectCore, SSHHandleSFTPSession>>
{
public:
    /// Takes the file over.
    SSHHandleSFTPSessionFile(SSHHandleSFTPSession* sftp, sftp_file file);
    ~SSHHandleSFTPSessionFile() override;

    /// Forgets the server's handle of the file, so that releasing it asks the server for nothing:
    /// the server closes the file itself when the SFTP session ends. To be called under the lock.
    void abandon() noexcept;

    /// Closes the file now and tells whether the server confirmed it: some servers keep what was
    /// written only then, and tell only then that they cannot. No request on the file may be under
    /// way. The handle is invalid afterwards, and invalidating it asks the server for nothing more.
    ///
    /// Blocks until the server has answered. False: it refused, the connection is lost, or the
    /// handle was invalidated before; on a lost SFTP session, at once. Any further call
    /// answers as the first.
    bool close();

    /// Whether a read has met the end of the file; false when the handle is invalid. Takes no lock,
    /// so that it answers at once while another thread works on the session.
    bool isAtEnd() const;

    /// The SFTP session that the file was opened on; null once it is gone. To be called under the
    /// lock, and used for as long as it is held.
    SSHHandleSFTPSession* getSftpSession() const noexcept
    {
        return static_cast<SSHHandleSFTPSession*>(getParent());
    }

    /// Where the next write of a file that is appended to goes, as far as this handle knows; what
    /// others append meanwhile is not counted. To be used under the lock.
    std::uint64_t getAppendEnd() const noexcept { return appendEnd_; }

    void setAppendEnd(std::uint64_t offset) noexcept { appendEnd_ = offset; }

    /// Whether the channel or the connection of the SFTP session was seen at its end, also when
    /// both handles are invalid by now.
    bool isLost() const noexcept { return *lost_; }

    /// As the SFTP session's.
    std::atomic<bool>& lossMark() const noexcept { return *lost_; }

    /// What the ranges of all open files of the SFTP session share.
    SFTPFlow& flow() const noexcept { return *flow_; }

protected:
    void do_invalidate() override;

private:
    sftp_file takeFile();
    bool closeFile(sftp_file file);

    // Keeps the file from being freed while somebody looks at it without the lock; held for that
    // look alone.
    mutable std::mutex looking_;
    bool isClosedWell_ = false;
    std::uint64_t appendEnd_ = 0;
    std::shared_ptr<std::atomic<bool>> lost_;
    std::shared_ptr<SFTPFlow> flow_;
};

} // namespace Tarnis
