#include "files/PathsCommand.h"

#include "Failure.h"
#include "terminal/Messages.h"
#include "terminal/StandardStreams.h"

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
    const auto paths = remotePaths({firstPath, operands.end()});
    pathCount_ = paths.size();
    RemotePlace place(paths.front().target, loginOptions());
    for (const RemotePath& path : paths) {
        try {
            workOn(place, path.path);
        } catch (const Failure& failure) {
            note(place, failure);
        }
    }
    finish();
    flushOutput();
    return hasFailed_ ? ExitCode::failure : ExitCode::success;
}

void PathsCommand::note(RemotePlace& place, const Failure& failure)
{
    if (failure.kind() == FailureKind::LocalProblem || failure.kind() == FailureKind::Cancelled) {
        throw Failure(failure);
    }
    hasFailed_ = true;
    place.requireAlive();
    report(failure.what());
}

} // namespace TarnisTool
