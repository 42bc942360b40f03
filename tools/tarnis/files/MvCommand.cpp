#include "files/MvCommand.h"

#include "Failure.h"
#include "files/Destination.h"
#include "terminal/Messages.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

MvCommand::MvCommand(CLI::App& program)
    : FileCommand(program, "mv", "Rename and move files within a server", "host:path... host:path",
                  2)
{
    commandLine().footer(
        "All paths are on one server. Into a directory, files go under their own names. What\n"
        "stands at the new path is never replaced.");
}

int MvCommand::work(const std::vector<std::string>& operands)
{
    auto paths = parseRemotePaths(operands);
    const std::string target = paths.back().path;
    paths.pop_back();
    RemotePlace remote(paths.front().target, loginOptions());
    const Destination destination(remote, target, paths.size());
    int code = ExitCode::success;
    for (const RemotePath& path : paths) {
        const std::string source = fileIdOf(path.path);
        try {
            move(remote, source, destination.pathFor(source));
        } catch (const Failure& failure) {
            remote.requireAlive();
            report(failure.what());
            code = ExitCode::failure;
        }
    }
    return code;
}

void MvCommand::move(RemotePlace& place, const std::string& source, const std::string& target)
{
    const auto& system = place.system();
    const auto info = place.find(source);
    if (system.fileInfo(target)) {
        place.forgetFailures();
        place.fail("cannot move " + place.display(source) + " to", target,
                   "something stands there already");
    }
    place.forgetFailures();
    const bool isMoved = isDirectory(info.type) ? system.directoryMoveAs(source, target)
                                                : system.fileMoveAs(source, target);
    if (!isMoved) {
        place.fail("cannot move " + place.display(source) + " to", target);
    }
}

} // namespace TarnisTool
