#include "files/PutCommand.h"

#include "Failure.h"
#include "files/InputCopy.h"
#include "files/LocalPlace.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace TarnisTool {

PutCommand::PutCommand(CLI::App& program)
    : CopyCommand(program, "put", "Copy files of this machine to a server",
                  "local path... host:path", 2)
{
    declareResume();
    commandLine().footer(
        "Into a directory (\"host:\" is the login directory), files go under their own names. A\n"
        "file takes its name when it is complete; a file or link that stood there is replaced.\n"
        "A local path \"-\" is standard input, which is read to its end.\n"
        "With --resume, a file there that is the beginning of the source has the name of the part\n"
        "meanwhile (\".NAME.tarnis-part\"), and keeps it after a lost connection, a second Ctrl-C\n"
        "or a sudden end of the program; the same command goes on from there.\n\n"
        "Example: tarnis put --resume backup.tar alice@example.org:backups/");
}

int PutCommand::copy(const std::vector<std::string>& operands)
{
    if (std::count(operands.begin(), operands.end() - 1, standardStream) != 0) {
        return putInput(operands);
    }
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

int PutCommand::putInput(const std::vector<std::string>& operands)
{
    const CopyOptions& how = options();
    const bool isTree = operands.size() > 2 || how.isRecursive || how.preserves || how.resumes;
    if (isTree || how.updates || how.keepsStanding || how.isDryRun || how.inFlight != 0) {
        throw UsageError("standard input (\"-\") goes alone, and with --inplace at most");
    }
    const RemotePath target = remotePath(operands.back());
    RemotePlace remote(target.target, loginOptions());
    const Destination destination(remote, target.path, 1);
    const std::string id = fileIdOf(target.path);
    if (destination.isDirectory()) {
        remote.refuse("cannot copy standard input to", id,
                      "a directory is there, and standard input has no name");
    }
    const Cancellation cancellation(remote.session());
    const bool isComplete = InputCopy(remote, id, how.isInPlace, cancellation).run();
    return isComplete ? ExitCode::success : ExitCode::failure;
}

} // namespace TarnisTool
