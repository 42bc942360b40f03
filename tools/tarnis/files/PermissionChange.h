#pragma once

#include <cstdint>
#include <string>

namespace TarnisTool {

/// The twelve permission bits after a change, which is octal ("644", "4755") or symbolic ("u+x",
/// "go-rwx", "a=r,u+w", "g+s", "+t"). Three octal digits, and changes without "s" and "t", leave
/// set-ID and sticky bits as they are. Throws UsageError for what is neither.
std::uint32_t changedMode(const std::string& change, std::uint32_t mode);

} // namespace TarnisTool
