#include "Commands.h"

#include "doctor/DoctorCommand.h"
#include "exec/ExecCommand.h"
#include "files/CatCommand.h"
#include "files/DfCommand.h"
#include "files/LsCommand.h"
#include "files/ReadlinkCommand.h"
#include "files/StatCommand.h"
#include "login/HostKeyCommand.h"

namespace TarnisTool {

std::vector<std::unique_ptr<Command>> makeCommands(CLI::App& program)
{
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<ExecCommand>(program));
    commands.push_back(std::make_unique<HostKeyCommand>(program));
    commands.push_back(std::make_unique<DoctorCommand>(program));
    commands.push_back(std::make_unique<LsCommand>(program));
    commands.push_back(std::make_unique<StatCommand>(program));
    commands.push_back(std::make_unique<CatCommand>(program));
    commands.push_back(std::make_unique<ReadlinkCommand>(program));
    commands.push_back(std::make_unique<DfCommand>(program));
    return commands;
}

} // namespace TarnisTool
