#include "files/CpCommand.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

CpCommand::CpCommand(CLI::App& program)
    : CopyCommand(program, "cp", "Copy files within a server", "host:path... host:path", 2)
{
    commandLine().footer(
        "All paths are on one server. Where it cannot copy by itself, the bytes travel to this\n"
        "machine and back. Each part of a path may be a pattern.");
}

int CpCommand::copy(const std::vector<std::string>& operands)
{
    auto paths = remotePaths(operands);
    const std::string target = paths.back().path;
    paths.pop_back();
    RemotePlace remote(paths.front().target, loginOptions());
    return copyAll(remote, remote, expandSources(remote, paths), remote, target);
}

} // namespace TarnisTool
