#pragma once

#include <string>

namespace Tarnis {

class SSHHandleSession;

/// The public key that the server proved to have, as libssh exports it in base64; empty when there
/// is none. Throws handle_fatal_error("invalid") when the handle is invalid.
std::string serverKeyBase64(SSHHandleSession& session);

/// The SHA-256 fingerprint of that key as ssh prints it, "SHA256:" and base64 without padding;
/// empty when there is none. Throws as serverKeyBase64() does.
std::string serverKeyFingerprint(SSHHandleSession& session);

} // namespace Tarnis
