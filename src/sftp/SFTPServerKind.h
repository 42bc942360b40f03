#pragma once

#include <libssh/libssh.h>

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

} // namespace Tarnis
