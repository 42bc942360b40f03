#include "files/GetCommand.h"

#include "files/LocalPlace.h"
#include "files/StreamedCopy.h"
#include "login/Login.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

namespace {

constexpr const char* onlyOne = "only one file goes to standard output";

} // namespace

GetCommand::GetCommand(CLI::App& program)
    : CopyCommand(program, "get", "Copy remote files to this machine", "host:path... [local path]",
                  1)
{
    declareResume();
    commandLine().footer(
        "The last of several paths is the local one; without it: the current directory. Into a\n"
        "directory, files go under their own names. Each part of a remote path may be a pattern.\n"
        "The local path \"-\" is standard output, for one file.\n"
        "A file takes its name when it is complete; what stood there is replaced, also a symbolic "
        "link.\n\n"
        "Example: tarnis get -rp alice@example.org:project .");
}

int GetCommand::copy(const std::vector<std::string>& operands)
{
    const bool hasTarget = operands.size() > 1;
    const std::string target = hasTarget ? operands.back() : ".";
    requireLocalPath(target, "get copies to this machine, and the last path is local");
    const auto paths =
        remotePaths({operands.begin(), hasTarget ? operands.end() - 1 : operands.end()});
    const bool isToOutput = target == standardStream;
    if (isToOutput && paths.size() > 1) {
        throw UsageError(onlyOne);
    }
    // In this order: secrets and the target may be descriptors that the user passed, and none of
    // them is to be mistaken for what is opened here.
    const LoginSecrets secrets = LoginSecrets::fetch(loginOptions());
    StreamTarget stream(target);
    RemotePlace remote(paths.front().target, loginOptions(), secrets);
    const Sources sources = expandSources(remote, paths);
    const bool isOne = sources.ids.size() == 1 && sources.count() == 1;
    if (isOne && stream.kind() != TargetKind::Ordinary) {
        writeInto(stream, remote, sources.ids.front());
        return sources.isComplete ? ExitCode::success : ExitCode::failure;
    }
    if (isToOutput && !sources.ids.empty()) {
        throw Failure(FailureKind::FileProblem, "cannot copy",
                      remote.display(fileIdOf(paths.front().path)), onlyOne);
    }
    LocalPlace local;
    return copyAll(remote, remote, sources, local, target);
}

void GetCommand::writeInto(StreamTarget& target, RemotePlace& remote,
                           const std::string& source) const
{
    LocalPlace local;
    if (target.kind() == TargetKind::Refused) {
        local.refuse("cannot copy to", target.path(), "it leads to a disk or a socket");
    }
    if (options().resumes) {
        local.refuse("cannot go on in", target.path(), "it is no file");
    }
    if (options().updates || options().keepsStanding || options().isDryRun) {
        local.refuse("cannot choose what goes to", target.path(), "it is no file");
    }
    const Cancellation cancellation(remote.session());
    StreamedCopy(remote, source, target, cancellation).run();
}

} // namespace TarnisTool
