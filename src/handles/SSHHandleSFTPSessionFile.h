#pragma once

#include "handles/SSHHandleObjectWrapper.h"
#include "handles/SSHHandleSFTPSession.h"

#include <FileSystem/HandleObjectGeneric.h>
#include <Tarnis/SSHDefaultDeleter.h>

#include <libssh/libssh.h>
#include <libssh/sftp.h>

namespace Tarnis {

/// Handle of one open remote file. Invalidated on its own, it closes the file and waits for the
/// server's answer; with its SFTP session, it only frees memory.
class SSHHandleSFTPSessionFile final
    : public SSHHandleObjectWrapper<
          FileSystem::HandleObjectGeneric<sftp_file_struct, ssh_default_deleter<sftp_file_struct>,
                                          FileSystem::HandleObjectCore, SSHHandleSFTPSession>>
{
public:
    /// Takes the file over.
    SSHHandleSFTPSessionFile(SSHHandleSFTPSession* sftp, sftp_file file);

    /// Forgets the server's handle of the file, so that releasing it asks the server for nothing:
    /// the server closes the file itself when the SFTP session ends. To be called under the lock.
    void abandon() noexcept;
};

} // namespace Tarnis
