#include "Commands.h"

#include "HelpCommand.h"
#include "doctor/DoctorCommand.h"
#include "exec/ExecCommand.h"
#include "files/CpCommand.h"
#include "files/GetCommand.h"
#include "files/LeafCommands.h"
#include "files/MvCommand.h"
#include "files/PutCommand.h"
#include "login/HostKeyCommand.h"

#include <array>

namespace TarnisTool {

namespace {

template <class Which>
std::unique_ptr<Command> make(CLI::App& program)
{
    return std::make_unique<Which>(program);
}

// In the order in which the help lists them.
constexpr std::array makers{
    make<ExecCommand>, make<HostKeyCommand>, make<DoctorCommand>, makeLsCommand,
    makeStatCommand,   makeCatCommand,       make<GetCommand>,    make<PutCommand>,
    make<CpCommand>,   make<MvCommand>,      makeRmCommand,       makeMkdirCommand,
    makeRmdirCommand,  makeLnCommand,        makeReadlinkCommand, makeChmodCommand,
    makeTouchCommand,  makeDfCommand,        make<HelpCommand>};

} // namespace

std::vector<std::unique_ptr<Command>> makeCommands(CLI::App& program)
{
    std::vector<std::unique_ptr<Command>> commands;
    for (const auto& makeOne : makers) {
        commands.push_back(makeOne(program));
    }
    return commands;
}

} // namespace TarnisTool
