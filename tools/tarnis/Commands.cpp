#include "Commands.h"

#include "doctor/DoctorCommand.h"
#include "exec/ExecCommand.h"
#include "login/HostKeyCommand.h"

namespace TarnisTool {

std::vector<std::unique_ptr<Command>> makeCommands(CLI::App& program)
{
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<ExecCommand>(program));
    commands.push_back(std::make_unique<HostKeyCommand>(program));
    commands.push_back(std::make_unique<DoctorCommand>(program));
    return commands;
}

} // namespace TarnisTool
