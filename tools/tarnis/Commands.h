#pragma once

#include "Command.h"

#include <memory>
#include <vector>

namespace TarnisTool {

/// Every sub-command that the program has. A new one is a class of its own and a line in here.
std::vector<std::unique_ptr<Command>> makeCommands(CLI::App& program);

} // namespace TarnisTool
