#pragma once

#include "Failure.h"
#include "login/ConnectionOptions.h"
#include "login/Target.h"

#include <string>

namespace TarnisTool {

/// What to do about a failure, in full sentences; empty where nothing is known to help.
std::string adviceFor(const Failure& failure, const Target& target, const LoginOptions& options);

} // namespace TarnisTool
