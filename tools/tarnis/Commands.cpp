#include "Commands.h"

#include "HelpCommand.h"
#include "doctor/DoctorCommand.h"
#include "exec/ExecCommand.h"
#include "files/CatCommand.h"
#include "files/ChmodCommand.h"
#include "files/CpCommand.h"
#include "files/DfCommand.h"
#include "files/GetCommand.h"
#include "files/LnCommand.h"
#include "files/LsCommand.h"
#include "files/MkdirCommand.h"
#include "files/MvCommand.h"
#include "files/PutCommand.h"
#include "files/ReadlinkCommand.h"
#include "files/RmCommand.h"
#include "files/RmdirCommand.h"
#include "files/StatCommand.h"
#include "files/TouchCommand.h"
#include "login/HostKeyCommand.h"

namespace TarnisTool {

namespace {

/// One of each, in the order in which the help lists them.
template <class... Commands>
std::vector<std::unique_ptr<Command>> makeEach(CLI::App& program)
{
    std::vector<std::unique_ptr<Command>> commands;
    (commands.push_back(std::make_unique<Commands>(program)), ...);
    return commands;
}

} // namespace

std::vector<std::unique_ptr<Command>> makeCommands(CLI::App& program)
{
    return makeEach<ExecCommand, HostKeyCommand, DoctorCommand, LsCommand, StatCommand, CatCommand,
                    GetCommand, PutCommand, CpCommand, MvCommand, RmCommand, MkdirCommand,
                    RmdirCommand, LnCommand, ReadlinkCommand, ChmodCommand, TouchCommand, DfCommand,
                    HelpCommand>(program);
}

} // namespace TarnisTool
