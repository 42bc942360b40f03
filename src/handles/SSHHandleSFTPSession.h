#pragma once

#include "handles/SSHHandleObjectWrapper.h"
#include "handles/SSHHandleSession.h"

#include <FileSystem/HandleObjectGeneric.h>
#include <Tarnis/SSHDefaultDeleter.h>

#include <libssh/libssh.h>
#include <libssh/sftp.h>

#include <memory>
#include <string>

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
    /// connection is lost. Throws handle_fatal_error("invalid") when this handle is invalid.
    /// \param posixFlags as open(2) takes them.
    /// \param mode       permissions of a file that is created.
    std::shared_ptr<SSHHandleSFTPSessionFile> openFile(const std::string& path, int posixFlags,
                                                       mode_t mode);

protected:
    void do_invalidate() override;
};

} // namespace Tarnis
