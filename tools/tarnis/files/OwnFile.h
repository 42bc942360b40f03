#pragma once

#include <string>

namespace TarnisTool {

/// Whether this machine has a regular file there that belongs to the user whom this process acts
/// as, and under no second name.
bool isOwnFile(const std::string& path);

/// Whether two entries of this machine belong to the same group.
bool areOfOneGroup(const std::string& first, const std::string& second);

} // namespace TarnisTool
