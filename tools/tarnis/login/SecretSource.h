#pragma once

#include "login/Secret.h"

#include <optional>
#include <string>

namespace TarnisTool {

/// Where a caller without a terminal has put a password or a pass phrase. Never an argument: those
/// can be read by every user of the machine.
struct SecretSource
{
    /// A file descriptor that the program inherited; its first unread line is the secret.
    std::optional<int> descriptor;
    /// The name of an environment variable.
    std::string variable;

    bool isNamed() const noexcept { return descriptor.has_value() || !variable.empty(); }

    /// Fetches the secret; empty when no source is named.
    /// \param what "password" or "pass phrase", for the message.
    /// Throws UsageError when there is nothing to be had where the caller said.
    std::optional<Secret> read(const std::string& what) const;
};

} // namespace TarnisTool
