#pragma once

#include <libssh/libssh.h>
#include <libssh/sftp.h>

namespace Tarnis {

/// The programs that serve files in ways of their own.
enum class SFTPServerKind
{
    OpenSsh,
    Dropbear, ///< Most likely with OpenSSH's SFTP server behind it.
    ModSftp,  ///< ProFTPD's.
    Other,
};

/// What the server's banner says of it.
SFTPServerKind sftpServerKindOf(ssh_session session);

/// Whether that is ProFTPD. To be called under the lock; asks no server.
bool isModSftp(sftp_session sftp);

/// Whether the SFTP session's other end is OpenSSH's own sftp-server, from 8.0 on, or as good as
/// that. The banner alone tells of the SSH server, which may run any other program for SFTP; this
/// one announces a whole set of extensions besides. To be called under the lock; asks no server.
bool isOpenSshSftpServer(sftp_session sftp);

} // namespace Tarnis
