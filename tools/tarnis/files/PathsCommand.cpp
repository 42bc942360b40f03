#include "files/PathsCommand.h"

#include "Failure.h"
#include "terminal/Messages.h"
#include "terminal/StandardStreams.h"

#include <algorithm>
#include <iterator>

namespace TarnisTool {

PathsCommand::PathsCommand(CLI::App& program, const std::string& name,
                           const std::string& description)
    : PathsCommand(program, name, description, "host:path...", 0)
{}

PathsCommand::PathsCommand(CLI::App& program, const std::string& name,
                           const std::string& description, const std::string& operands,
                           std::size_t otherOperands)
    : FileCommand(program, name, description, operands, otherOperands + 1)
    , otherOperands_(otherOperands)
{}

void PathsCommand::prepare(const std::vector<std::string>& operands)
{
    static_cast<void>(operands);
}

int PathsCommand::work(const std::vector<std::string>& operands)
{
    prepare(operands);
    const auto firstPath = operands.begin() + static_cast<std::ptrdiff_t>(otherOperands_);
    auto remotes = remotePaths({firstPath, operands.end()});
    std::vector<std::string> paths;
    std::transform(remotes.begin(), remotes.end(), std::back_inserter(paths),
                   [](RemotePath& remote) { return std::move(remote.path); });
    RemotePlace place(remotes.front().target, loginOptions());
    workOnAll(place, paths);
    finish();
    flushOutput();
    return hasFailed_ ? ExitCode::failure : ExitCode::success;
}

void PathsCommand::note(const Failure& failure)
{
    if (failure.kind() == FailureKind::LocalProblem || failure.kind() == FailureKind::Cancelled ||
        failure.kind() == FailureKind::ConnectionLost) {
        throw Failure(failure);
    }
    hasFailed_ = true;
    report(failure.what());
}

void PathsCommand::noteUnlessLost(RemotePlace& place, const Failure& failure)
{
    if (failure.kind() == FailureKind::FileProblem || failure.kind() == FailureKind::NothingThere) {
        place.requireAlive();
    }
    note(failure);
}

void EachPathCommand::workOnAll(RemotePlace& place, const std::vector<std::string>& paths)
{
    for (const std::string& path : paths) {
        try {
            workOn(place, path);
        } catch (const Failure& failure) {
            noteUnlessLost(place, failure);
        }
    }
}

} // namespace TarnisTool
