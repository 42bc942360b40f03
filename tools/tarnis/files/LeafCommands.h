#pragma once

#include "Command.h"

#include <memory>

namespace TarnisTool {

// The file commands of which nobody needs more than that they can be run.

std::unique_ptr<Command> makeLsCommand(CLI::App& program);
std::unique_ptr<Command> makeStatCommand(CLI::App& program);
std::unique_ptr<Command> makeCatCommand(CLI::App& program);
std::unique_ptr<Command> makeRmCommand(CLI::App& program);
std::unique_ptr<Command> makeMkdirCommand(CLI::App& program);
std::unique_ptr<Command> makeRmdirCommand(CLI::App& program);
std::unique_ptr<Command> makeLnCommand(CLI::App& program);
std::unique_ptr<Command> makeReadlinkCommand(CLI::App& program);
std::unique_ptr<Command> makeChmodCommand(CLI::App& program);
std::unique_ptr<Command> makeTouchCommand(CLI::App& program);
std::unique_ptr<Command> makeDfCommand(CLI::App& program);

} // namespace TarnisTool
