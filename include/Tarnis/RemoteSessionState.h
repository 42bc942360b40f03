#pragma once

#include <cstdint>

namespace Tarnis {

/// Where a session stands. The values are sets of bits: 1 connecting, 2 connected,
/// 4 authenticating, 16 host authentication due, 32 user authentication due, 64 authenticated,
/// 256 disconnecting, 512 disconnected.
enum class RemoteSessionState : std::uint32_t
{
    Connecting = 1,          ///< connect() runs.
    HostAuthenticating = 22, ///< Connected; the server's host key is to be verified next.
    UserAuthenticating = 38, ///< Host accepted; the user must authenticate next.
    Authenticated = 66,      ///< User accepted; the session is usable.
    Disconnecting = 256,     ///< disconnect() runs.
    Disconnected = 512, ///< Initial; after a disconnect, a failed connect or a lost connection.
};

} // namespace Tarnis
