#pragma once

#include "Failure.h"
#include "login/ConnectionOptions.h"
#include "login/Target.h"

#include <set>
#include <string>

namespace TarnisTool {

/// What to do about a failure, in full sentences; empty where nothing is known to help.
/// \param offered the methods that the server still takes for logging in, as far as it has told.
std::string adviceFor(const Failure& failure, const Target& target, const LoginOptions& options,
                      const std::set<std::string>& offered);

} // namespace TarnisTool
