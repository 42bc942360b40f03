#pragma once

#include <string>

namespace Tarnis {

class SSHHandleSFTPSession;

/// Renames a file or a link onto another one, which it replaces, in one atomic step of the server,
/// where it offers the extension posix-rename@openssh.com. False: it does not, it refused, its
/// answer did not come. Asks nothing of a server that does not offer it. Otherwise blocks until the
/// server has answered; throws handle_fatal_error("invalid") when the handle is invalid.
bool renameReplacing(SSHHandleSFTPSession& sftp, const std::string& path,
                     const std::string& newPath);

} // namespace Tarnis
