#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace TarnisTool {

/// Moves options that stand before the sub-command behind its name, where the parser wants them:
/// "-i key ls" becomes "ls -i key". Where what stands there are no options of a sub-command that
/// follows, the arguments stay as they are.
void moveOptionsBehindCommand(const CLI::App& program, std::vector<std::string>& arguments);

} // namespace TarnisTool
