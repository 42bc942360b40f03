#pragma once

#include <string>
#include <string_view>

namespace TarnisTool {

/// The SHA-256 fingerprint of a public key, "SHA256:" and base64 without padding, as OpenSSH's
/// tools print it.
/// \param keyBase64 the key as a known-hosts line has it. Empty result: it is no base64.
std::string fingerprintOf(std::string_view keyBase64);

/// The type of a public key, "ssh-ed25519" for example: the first field of its binary form. Empty
/// where it has none.
std::string keyTypeOf(std::string_view keyBase64);

} // namespace TarnisTool
