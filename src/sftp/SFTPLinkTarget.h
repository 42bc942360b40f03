#pragma once

#include "sftp/SFTPCall.h"

#include <optional>
#include <string>

namespace Tarnis {

/// What a symbolic link says, as the server reports it. Empty: there is no link, or it cannot be
/// read. Blocks on the server; throws handle_fatal_error("invalid") when the handle is invalid.
std::optional<std::string> readLinkTarget(SSHHandleSFTPSession& sftp, const std::string& path,
                                          SFTPNotes notes = SFTPNotes::All);

} // namespace Tarnis
