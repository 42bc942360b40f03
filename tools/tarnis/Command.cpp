#include "Command.h"

namespace TarnisTool {

Command::Command(CLI::App& program, const std::string& name, const std::string& description)
    : commandLine_(*program.add_subcommand(name, description))
{}

} // namespace TarnisTool
