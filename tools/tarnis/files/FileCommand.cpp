#include "files/FileCommand.h"

#include "Failure.h"
#include "terminal/Messages.h"
#include "terminal/StandardStreams.h"

#include <FileSystem/HandleFatalError.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>

#include <unistd.h>

namespace TarnisTool {

FileCommand::FileCommand(CLI::App& program, const std::string& name, const std::string& description,
                         const std::string& operands, std::size_t fewestOperands)
    : Command(program, name, description)
    , name_(name)
    , operandNames_(operands)
    , fewestOperands_(fewestOperands)
{
    // The parser would take "[a,b]" for a list of two.
    commandLine().allow_extras();
    showInUsage(operands);
    declareLoginOptions(commandLine(), loginOptions_);
}

int FileCommand::run(const std::vector<std::string>& words)
{
    std::vector<std::string> operands = commandLine().remaining();
    for (const std::string& operand : operands) {
        if (operand.size() > 1 && operand.front() == '-') {
            throw UsageError("there is no option \"" + optionName(operand) +
                             R"("; names follow "--")");
        }
    }
    operands.insert(operands.end(), words.begin(), words.end());
    if (operands.size() < fewestOperands_) {
        throw UsageError(name_ + " needs " + operandNames_);
    }
    try {
        return work(operands);
    } catch (const FileSystem::handle_fatal_error&) {
        throw Failure(FailureKind::ConnectionLost, "lost the connection to", server_,
                      "the session ended during " + name_);
    }
}

RemotePath FileCommand::remotePath(const std::string& text)
{
    RemotePath path = parseRemotePath(text, loginOptions_.reach.port);
    server_ = path.target.display();
    return path;
}

std::vector<RemotePath> FileCommand::remotePaths(const std::vector<std::string>& texts)
{
    std::vector<RemotePath> paths;
    paths.reserve(texts.size());
    for (const std::string& text : texts) {
        paths.push_back(remotePath(text));
        if (!(paths.back().target == paths.front().target)) {
            throw UsageError("\"" + text + "\" is on another server than \"" + texts.front() +
                             "\": one call works on one server");
        }
    }
    return paths;
}

std::string forOutput(const std::string& name)
{
    static const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
    return isTerminal ? withoutControls(name) : name;
}

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
    RemoteEndpoint endpoint(remotes.front().target, loginOptions());
    workOnAll(endpoint, paths);
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

void PathsCommand::noteUnlessLost(RemoteEndpoint& endpoint, const Failure& failure)
{
    if (failure.kind() == FailureKind::FileProblem || failure.kind() == FailureKind::NothingThere) {
        endpoint.requireAlive();
    }
    note(failure);
}

void EachPathCommand::workOnAll(RemoteEndpoint& endpoint, const std::vector<std::string>& paths)
{
    for (const std::string& path : paths) {
        try {
            workOn(endpoint, path);
        } catch (const Failure& failure) {
            noteUnlessLost(endpoint, failure);
        }
    }
}

} // namespace TarnisTool
