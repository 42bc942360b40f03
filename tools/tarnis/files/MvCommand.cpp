#include "files/MvCommand.h"

#include "Failure.h"
#include "files/Destination.h"
#include "files/MoveByCopy.h"
#include "terminal/Messages.h"

#include <CLI/CLI.hpp>

#include <utility>

namespace TarnisTool {

namespace {

/// Whether a refused rename may be one to another volume, which a copy can make up for.
bool canBeCopied(const Endpoint& place, const std::string& source, const std::string& target)
{
    return !nameOf(source).empty() && !isWithin(place.system(), target, source) &&
           place.system().directoryExists(place.system().pathParentId(target));
}

} // namespace

MvCommand::MvCommand(CLI::App& program)
    : FileCommand(program, "mv", "Rename and move files within a server", "host:path... host:path",
                  2)
{
    commandLine().footer(
        "All paths are on one server. Into a directory, files go under their own names. What\n"
        "stands at the new path is never replaced. What the server does not rename, as to another\n"
        "volume, is copied with permissions and times, and then removed.");
}

int MvCommand::work(const std::vector<std::string>& operands)
{
    auto paths = remotePaths(operands);
    const std::string target = paths.back().path;
    paths.pop_back();
    RemoteEndpoint remote(paths.front().target, loginOptions());
    const Destination destination(remote, target, paths.size());
    const Cancellation cancellation(remote.session());
    int code = ExitCode::success;
    for (const RemotePath& path : paths) {
        const std::string source = fileIdOf(path.path);
        try {
            if (cancellation.isRequested()) {
                throw Failure(FailureKind::Cancelled, "interrupted before the move of",
                              remote.display(source), "what was named before it is done");
            }
            move(remote, cancellation, source, destination.pathFor(source));
        } catch (const Failure& failure) {
            if (failure.kind() == FailureKind::Cancelled ||
                failure.kind() == FailureKind::ConnectionLost) {
                throw;
            }
            remote.requireAlive();
            report(failure.what());
            code = ExitCode::failure;
        }
    }
    return code;
}

void MvCommand::move(RemoteEndpoint& place, const Cancellation& cancellation,
                     const std::string& source, const std::string& target)
{
    const auto& system = place.system();
    auto info = place.find(source);
    if (system.fileInfo(target)) {
        place.refuse("cannot move " + place.display(source) + " to", target,
                     "something stands there already");
    }
    if (system.fileRenameAs(source, target)) {
        return;
    }
    const auto why = FileSystem::Failure::last();
    if (!canBeCopied(place, source, target)) {
        place.failBecause("cannot move " + place.display(source) + " to", target, why);
    }
    MoveByCopy(place, cancellation, source, std::move(info), target).run();
}

} // namespace TarnisTool
