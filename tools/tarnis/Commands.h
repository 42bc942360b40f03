#pragma once

#include "Command.h"

#include <memory>

namespace TarnisTool {

// The sub-commands, of which nobody needs more than that they can be run. A new one is a class of
// its own, a line in here and one in Program.cpp.

std::unique_ptr<Command> makeExecCommand(CLI::App& program);
std::unique_ptr<Command> makeHostKeyCommand(CLI::App& program);
std::unique_ptr<Command> makeDoctorCommand(CLI::App& program);
std::unique_ptr<Command> makeLsCommand(CLI::App& program);
std::unique_ptr<Command> makeStatCommand(CLI::App& program);
std::unique_ptr<Command> makeCatCommand(CLI::App& program);
std::unique_ptr<Command> makeGetCommand(CLI::App& program);
std::unique_ptr<Command> makePutCommand(CLI::App& program);
std::unique_ptr<Command> makeCpCommand(CLI::App& program);
std::unique_ptr<Command> makeMvCommand(CLI::App& program);
std::unique_ptr<Command> makeRmCommand(CLI::App& program);
std::unique_ptr<Command> makeMkdirCommand(CLI::App& program);
std::unique_ptr<Command> makeRmdirCommand(CLI::App& program);
std::unique_ptr<Command> makeLnCommand(CLI::App& program);
std::unique_ptr<Command> makeReadlinkCommand(CLI::App& program);
std::unique_ptr<Command> makeChmodCommand(CLI::App& program);
std::unique_ptr<Command> makeTouchCommand(CLI::App& program);
std::unique_ptr<Command> makeDfCommand(CLI::App& program);
std::unique_ptr<Command> makeHelpCommand(CLI::App& program);

} // namespace TarnisTool
