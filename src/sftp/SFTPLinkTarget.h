#pragma once

#include <optional>
#include <string>

namespace Tarnis {

class SSHHandleSFTPSession;

/// What a symbolic link says, as the server reports it. Empty: there is no link, or it cannot be
/// read. Blocks on the server; throws handle_fatal_error("invalid") when the handle is invalid.
std::optional<std::string> readLinkTarget(SSHHandleSFTPSession& sftp, const std::string& path);

} // namespace Tarnis
