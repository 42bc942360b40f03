#include "Commands.h"
#include "Failure.h"
#include "LeadingOptions.h"
#include "files/MvCommand.h"
#include "terminal/Messages.h"
#include "terminal/StandardStreams.h"

#include <Tarnis/Version.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <exception>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <malloc.h>

namespace TarnisTool {

namespace {

std::unique_ptr<Command> makeMvCommand(CLI::App& program)
{
    return std::make_unique<MvCommand>(program);
}

// In the order in which the help lists them.
constexpr std::array makers{
    makeExecCommand,  makeHostKeyCommand, makeDoctorCommand, makeLsCommand,  makeStatCommand,
    makeCatCommand,   makeGetCommand,     makePutCommand,    makeCpCommand,  makeMvCommand,
    makeRmCommand,    makeMkdirCommand,   makeRmdirCommand,  makeLnCommand,  makeReadlinkCommand,
    makeChmodCommand, makeTouchCommand,   makeDfCommand,     makeHelpCommand};

std::vector<std::unique_ptr<Command>> makeCommands(CLI::App& program)
{
    std::vector<std::unique_ptr<Command>> commands;
    for (const auto& makeOne : makers) {
        commands.push_back(makeOne(program));
    }
    return commands;
}

/// Takes what follows the first "--" out of the arguments. The parser must not see it: it would
/// look for options and sub-commands in there.
std::vector<std::string> splitOffWords(std::vector<std::string>& arguments)
{
    const auto mark = std::find(arguments.begin(), arguments.end(), "--");
    std::vector<std::string> words;
    if (mark != arguments.end()) {
        words.assign(std::make_move_iterator(mark + 1), std::make_move_iterator(arguments.end()));
        arguments.erase(mark, arguments.end());
    }
    return words;
}

int usageError(const std::string& why)
{
    report(why + " (tarnis --help tells more)");
    return ExitCode::usage;
}

/// Runs one sub-command; tells the user why it failed, if it did.
int runCommand(Command& command, const std::vector<std::string>& words)
{
    try {
        return command.run(words);
    } catch (const UsageError& error) {
        return usageError(error.what());
    } catch (const std::exception& error) {
        report(error.what());
        return command.failureCode();
    }
}

bool isOption(const std::string& argument)
{
    return argument.size() > 1 && argument.front() == '-';
}

/// An option that nobody knows.
std::optional<std::string> unknownOption(const CLI::App& program)
{
    const std::vector<std::string> unknown = program.remaining(true);
    const auto option = std::find_if(unknown.begin(), unknown.end(), isOption);
    return option == unknown.end() ? std::nullopt : std::make_optional(optionName(*option));
}

/// What the parser ended with: a request for help or the version, or a mistake of the user's.
int answerParseEnd(const CLI::App& program, const CLI::ParseError& end)
{
    if (end.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        return program.exit(end);
    }
    const std::vector<std::string> unknown = program.remaining();
    if (program.get_subcommands().empty() && !unknown.empty()) {
        // The parser's own text does not name the word that was taken for a sub-command.
        const auto word = std::find_if_not(unknown.begin(), unknown.end(), isOption);
        return usageError(word == unknown.end() ? "no sub-command was given"
                                                : "there is no sub-command \"" + *word + "\"");
    }
    if (const auto option = unknownOption(program)) {
        return usageError("there is no option " + *option);
    }
    return usageError(end.what());
}

/// For each piece of a transfer, libssh takes a quarter of a megabyte and gives it back. The C
/// library would return it to the system each time, to get it anew page by page: a quarter of the
/// processor time of a download.
void keepFreedMemory() noexcept
{
#ifdef __GLIBC__
    constexpr int kept = 16 << 20;
    ::mallopt(M_TRIM_THRESHOLD, kept);
    ::mallopt(M_MMAP_THRESHOLD, kept);
#endif
}

/// The whole program but for its name: reads the arguments, runs the sub-command that they ask for,
/// and tells the user of every failure. Returns the exit code.
int runProgram(std::vector<std::string> arguments)
{
    const std::vector<std::string> words = splitOffWords(arguments);
    CLI::App program("Remote commands and files over SSH, and what keeps you from them.", "tarnis");
    program.set_version_flag("--version", std::string("tarnis ") + TARNIS_VERSION);
    program.set_help_all_flag("--help-all", "Print the help with every option and exit");
    program.require_subcommand(1);
    const auto commands = makeCommands(program);
    try {
        moveOptionsBehindCommand(program, arguments);
        // The parser wants them last to first.
        std::reverse(arguments.begin(), arguments.end());
        program.parse(std::move(arguments));
    } catch (const CLI::ParseError& end) {
        return answerParseEnd(program, end);
    }
    for (const auto& command : commands) {
        if (command->isChosen()) {
            return runCommand(*command, words);
        }
    }
    return usageError("no sub-command was given");
}

} // namespace

} // namespace TarnisTool

int main(int argc, char** argv)
{
    TarnisTool::keepFreedMemory();
    TarnisTool::prepareStandardStreams();
    return TarnisTool::runProgram(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
