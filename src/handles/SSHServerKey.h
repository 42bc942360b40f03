#pragma once

#include <string>

namespace Tarnis {

class SSHHandleSession;

/// The public key that the server proved to have, as libssh exports it in base64; empty when there
/// is none. Throws handle_fatal_error("invalid") when the handle is invalid.
std::string serverKeyBase64(SSHHandleSession& session);

} // namespace Tarnis
