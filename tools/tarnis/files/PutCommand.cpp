#include "files/PutCommand.h"

#include "Failure.h"
#include "files/LocalPlace.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

PutCommand::PutCommand(CLI::App& program)
    : CopyCommand(program, "put", "Copy files of this machine to a server",
                  "local path... host:path", 2)
{
    declareResume();
    commandLine().footer(
        "Into a directory (\"host:\" is the login directory), files go under their own names. A\n"
        "file takes its name when it is complete; a file or link that stood there is replaced.\n"
        "With --resume, a file there that is the beginning of the source has the name of the part\n"
        "meanwhile (\".NAME.tarnis-part\"), and keeps it after a lost connection, a second Ctrl-C\n"
        "or a sudden end of the program; the same command goes on from there.\n\n"
        "Example: tarnis put --resume backup.tar alice@example.org:backups/");
}

int PutCommand::copy(const std::vector<std::string>& operands)
{
    const RemotePath target = remotePath(operands.back());
    Sources sources;
    for (auto path = operands.begin(); path != operands.end() - 1; ++path) {
        if (path->empty()) {
            throw UsageError("an empty local path names nothing");
        }
        requireLocalPath(*path, "put copies from this machine, and only the last path is remote");
        sources.ids.push_back(fileIdOf(*path));
    }
    RemotePlace remote(target.target, loginOptions());
    LocalPlace local;
    return copyAll(remote, local, sources, remote, target.path);
}

} // namespace TarnisTool
