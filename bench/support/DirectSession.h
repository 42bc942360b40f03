#pragma once

#include "support/Login.h"

#include <libssh/libssh.h>

#include <memory>
#include <string>

namespace TarnisBench {

// libssh used by itself, as a program without the library would: the peer of most measurements.

struct DirectSessionCloser
{
    void operator()(ssh_session session) const noexcept;
};

struct DirectChannelCloser
{
    void operator()(ssh_channel channel) const noexcept;
};

using DirectSession = std::unique_ptr<ssh_session_struct, DirectSessionCloser>;
using DirectChannel = std::unique_ptr<ssh_channel_struct, DirectChannelCloser>;

/// Connects, finds the server in the known-hosts file, logs in with the key file: blocking calls,
/// TCP_NODELAY on, configuration files off. Throws std::runtime_error when a step fails.
DirectSession logInDirectly(const Login& login);

/// A channel that runs `commandLine`. Throws std::runtime_error when it is refused.
DirectChannel startDirectly(ssh_session session, const std::string& commandLine);

/// What a connection uses, as libssh names it.
struct Algorithms
{
    std::string keyExchange;
    std::string cipher;
    /// Empty where the cipher authenticates the data too.
    std::string mac;
};

Algorithms negotiatedAlgorithms(ssh_session session);

} // namespace TarnisBench
