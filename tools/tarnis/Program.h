#pragma once

#include <string>
#include <vector>

namespace TarnisTool {

/// The whole program but for its name: reads the arguments, runs the sub-command that they ask for,
/// and tells the user of every failure. Returns the exit code.
int runProgram(std::vector<std::string> arguments);

} // namespace TarnisTool
