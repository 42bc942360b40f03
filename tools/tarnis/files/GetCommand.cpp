#include "files/GetCommand.h"

#include "files/LocalPlace.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

GetCommand::GetCommand(CLI::App& program)
    : CopyCommand(program, "get", "Copy remote files to this machine", "host:path... [local path]",
                  1)
{
    declareResume();
    commandLine().footer(
        "The last of several paths is the local one; without it: the current directory. Into a\n"
        "directory, files go under their own names. Each part of a remote path may be a pattern.\n"
        "A file takes its name when it is complete; what stood there is replaced, also a symbolic "
        "link.\n\n"
        "Example: tarnis get -rp alice@example.org:project .");
}

int GetCommand::work(const std::vector<std::string>& operands)
{
    const bool hasTarget = operands.size() > 1;
    const std::string target = hasTarget ? operands.back() : ".";
    requireLocalPath(target, "get copies to this machine, and the last path is local");
    const auto paths =
        remotePaths({operands.begin(), hasTarget ? operands.end() - 1 : operands.end()});
    RemotePlace remote(paths.front().target, loginOptions());
    LocalPlace local;
    return copyAll(remote, remote, expandSources(remote, paths), local, target);
}

} // namespace TarnisTool
