#include "Program.h"

#include "Commands.h"
#include "Failure.h"
#include "terminal/Messages.h"

#include <Tarnis/Version.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TarnisTool {

namespace {

// In the order in which the help lists them.
constexpr std::array makers{
    makeExecCommand,  makeHostKeyCommand, makeDoctorCommand, makeLsCommand,  makeStatCommand,
    makeCatCommand,   makeGetCommand,     makePutCommand,    makeCpCommand,  makeMvCommand,
    makeRmCommand,    makeMkdirCommand,   makeRmdirCommand,  makeLnCommand,  makeReadlinkCommand,
    makeChmodCommand, makeTouchCommand,   makeDfCommand,     makeHelpCommand};

std::vector<std::unique_ptr<Command>> makeCommands(CLI::App& program)
{
    std::vector<std::unique_ptr<Command>> commands;
    commands.reserve(makers.size());
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

using Arguments = std::vector<std::string>;

enum class Shape
{
    NoOption,
    Alone,
    WithValue, ///< The value is the next argument.
};

bool takesValue(const CLI::Option& option)
{
    return option.get_items_expected_max() > 0;
}

Shape shapeOfLong(const CLI::App& command, const std::string& argument)
{
    const auto equals = argument.find('=');
    const CLI::Option* const option = command.get_option_no_throw(argument.substr(0, equals));
    if (option == nullptr) {
        return Shape::NoOption;
    }
    return takesValue(*option) && equals == std::string::npos ? Shape::WithValue : Shape::Alone;
}

/// One letter or several; behind one that takes a value, the rest is the value.
Shape shapeOfShort(const CLI::App& command, const std::string& argument)
{
    for (std::size_t i = 1; i < argument.size(); ++i) {
        const CLI::Option* const option =
            command.get_option_no_throw(std::string("-") + argument[i]);
        if (option == nullptr) {
            return Shape::NoOption;
        }
        if (takesValue(*option)) {
            return i + 1 == argument.size() ? Shape::WithValue : Shape::Alone;
        }
    }
    return Shape::Alone;
}

Shape shapeOf(const CLI::App& command, const std::string& argument)
{
    if (argument.size() < 2 || argument.front() != '-') {
        return Shape::NoOption;
    }
    return argument[1] == '-' ? shapeOfLong(command, argument) : shapeOfShort(command, argument);
}

/// Whether all that stands before the end are options of the sub-command, with their values.
bool areOptionsOf(const CLI::App& command, Arguments::const_iterator next,
                  Arguments::const_iterator end)
{
    while (next != end) {
        const Shape shape = shapeOf(command, *next);
        ++next;
        if (shape == Shape::NoOption || (shape == Shape::WithValue && next == end)) {
            return false;
        }
        next += shape == Shape::WithValue ? 1 : 0;
    }
    return true;
}

/// Moves options that stand before the sub-command behind its name, where the parser wants them:
/// "-i key ls" becomes "ls -i key". Where what stands there are no options of a sub-command that
/// follows, the arguments stay as they are.
void moveOptionsBehindCommand(const CLI::App& program, Arguments& arguments)
{
    const auto commands = program.get_subcommands([](const CLI::App*) { return true; });
    for (auto word = arguments.begin(); word != arguments.end(); ++word) {
        const auto command =
            std::find_if(commands.begin(), commands.end(), [&word](const CLI::App* candidate) {
                return candidate->get_name() == *word;
            });
        if (command != commands.end() && areOptionsOf(**command, arguments.begin(), word)) {
            std::rotate(arguments.begin(), word, word + 1);
            return;
        }
    }
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

} // namespace

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

} // namespace TarnisTool
