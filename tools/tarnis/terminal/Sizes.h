#pragma once

#include <cstdint>
#include <string>

namespace TarnisTool {

/// Bytes for people, with decimal prefixes: "999 B", "1.2 kB", "34.5 MB".
std::string humanSize(std::uint64_t bytes);

} // namespace TarnisTool
