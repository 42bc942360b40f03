#pragma once

#include <Tarnis/SSHAlgorithmMismatch.h>

#include <optional>
#include <string_view>

namespace Tarnis {

/// What libssh's message says of algorithms that had nothing in common; empty for any other
/// message. There is nothing but the message to tell it by.
std::optional<SSHAlgorithmMismatch> readAlgorithmMismatch(std::string_view message);

} // namespace Tarnis
