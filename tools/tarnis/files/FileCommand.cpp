#include "files/FileCommand.h"

#include "Failure.h"
#include "terminal/Messages.h"

#include <FileSystem/HandleFatalError.h>

#include <CLI/CLI.hpp>

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

} // namespace TarnisTool
