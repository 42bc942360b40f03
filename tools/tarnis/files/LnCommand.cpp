#include "files/LnCommand.h"

#include "Failure.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

LnCommand::LnCommand(CLI::App& program)
    : FileCommand(program, "ln", "Make a symbolic link on a server", "target host:path", 2)
{
    commandLine().add_flag("-s,--symbolic", isSymbolic_,
                           "Make a symbolic link; there is no other kind here");
    commandLine().add_flag("-f,--force", isForced_, "Replace a file or link that stands there");
    commandLine().footer(
        "The target is put into the link as it is: a relative one counts from the link's own\n"
        "directory. Nothing has to stand there.\n\n"
        "Example: tarnis ln -s releases/5 alice@example.org:current");
}

int LnCommand::work(const std::vector<std::string>& operands)
{
    if (!isSymbolic_) {
        throw UsageError("ln makes symbolic links only: say so with -s");
    }
    if (operands.size() > 2) {
        throw UsageError("ln takes a target and one host:path");
    }
    const RemotePath path = remotePath(operands.back());
    RemotePlace remote(path.target, loginOptions());
    const std::string id = fileIdOf(path.path);
    // A link to a directory is the link that is meant, not the directory.
    const bool isInside = remote.system().directoryExists(id, false);
    makeLink(remote, operands.front(), isInside ? joinPath(id, nameOf(operands.front())) : id);
    return ExitCode::success;
}

void LnCommand::makeLink(RemotePlace& place, const std::string& target,
                         const std::string& path) const
{
    const auto& system = place.system();
    // The file system would make room for the link, whatever stands there.
    const auto there = system.fileInfo(path);
    if (there && (!isForced_ || isDirectory(there->type))) {
        place.refuse("cannot make the link", path, "something stands there already");
    }
    if (!system.fileSymbolicLinkCreateAs(target, path, false)) {
        place.failBecause("cannot make the link", path, FileSystem::Failure::last());
    }
}

} // namespace TarnisTool
