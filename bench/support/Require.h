#pragma once

#include <string>

namespace TarnisBench {

/// Throws std::runtime_error naming `what` unless `condition` holds: a contestant that fails must
/// not pass for a fast one.
void require(bool condition, const std::string& what);

} // namespace TarnisBench
