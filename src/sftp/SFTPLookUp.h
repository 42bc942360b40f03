#pragma once

#include "sftp/SFTPAttributes.h"
#include "sftp/SFTPCall.h"

#include <string>

namespace Tarnis {

/// The attributes of what stands at a path, of a symbolic link its own; null when nothing stands
/// there or the server does not tell. Blocks on the server; throws handle_fatal_error("invalid")
/// when the handle is invalid.
///
/// ProFTPD's mod_sftp (seen with 1.3.8) describes what a link leads to, where that exists, though
/// it was asked for the link. It is asked for the link's text besides, which only a link has.
/// Taking a link for a directory would mean removing what is behind it, so that other servers are
/// asked the same of directories until they have told a link; OpenSSH's own is known to.
SFTPAttributes lookUp(SSHHandleSFTPSession& sftp, const std::string& path,
                      SFTPNotes notes = SFTPNotes::All);

/// Whether a path is a symbolic link and the server, asked to rename it or onto it, would rename or
/// replace what it leads to: mod_sftp again. Notes so. Blocks and throws as above.
bool isFollowedByRename(SSHHandleSFTPSession& sftp, const std::string& path);

} // namespace Tarnis
