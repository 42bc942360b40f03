#include "Help.h"

#include "Commands.h"
#include "Failure.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <utility>
#include <vector>

namespace TarnisTool {

namespace {

bool isOfConnection(const std::string& group)
{
    return group == OptionGroup::connection || group == OptionGroup::hostKey ||
           group == OptionGroup::login;
}

/// Versions of CLI11 differ in the empty lines around a part.
std::string trimmed(const std::string& part)
{
    const auto first = part.find_first_not_of(" \n");
    const auto last = part.find_last_not_of(" \n");
    return first == std::string::npos ? "" : part.substr(first, last - first + 1);
}

std::vector<const CLI::Option*> optionsOf(const CLI::App& app, const std::string& group)
{
    return app.get_options([&group](const CLI::Option* option) {
        return option->get_group() == group && option->nonpositional();
    });
}

/// `tarnis help`: the same as --help, with the sub-command's name behind it.
class HelpCommand : public Command
{
public:
    explicit HelpCommand(CLI::App& program);

    int run(const std::vector<std::string>& words) override;

private:
    const CLI::App& program_;
    std::string topic_;
};

HelpCommand::HelpCommand(CLI::App& program)
    : Command(program, "help", "Show what a sub-command does and takes")
    , program_(program)
{
    commandLine().add_option("command", topic_, "Its name")->type_name("");
}

int HelpCommand::run(const std::vector<std::string>& words)
{
    if (!words.empty()) {
        throw UsageError("help takes no command line");
    }
    if (topic_.empty()) {
        // The program's own help() is that of the sub-command that was asked for, this one.
        std::cout << program_.get_formatter()->make_help(&program_, program_.get_name(),
                                                         CLI::AppFormatMode::Normal);
        return ExitCode::success;
    }
    const auto topics = program_.get_subcommands(
        [this](const CLI::App* command) { return command->get_name() == topic_; });
    if (topics.empty()) {
        throw UsageError("there is no sub-command \"" + topic_ + "\"");
    }
    std::cout << topics.front()->help(program_.get_name());
    return ExitCode::success;
}

} // namespace

HelpText::HelpText(std::string operands)
    : operands_(std::move(operands))
{}

std::string HelpText::make_usage(const CLI::App* app, std::string name) const
{
    const std::string usage = trimmed(CLI::Formatter::make_usage(app, std::move(name)));
    // Newer versions of CLI11 leave the label out where there is a name.
    const std::string label = get_label("Usage") + ": ";
    return (usage.rfind(label, 0) == 0 ? "" : label) + usage +
           (operands_.empty() ? "" : " " + operands_) + "\n";
}

std::string HelpText::make_help(const CLI::App* app, std::string name,
                                CLI::AppFormatMode mode) const
{
    // The parser gives the name without the program's where it lists the help of all sub-commands.
    const bool isOneOfAll = mode == CLI::AppFormatMode::Sub;
    if (isOneOfAll) {
        name = "tarnis " + app->get_name();
        mode = CLI::AppFormatMode::All;
    }
    return (isOneOfAll ? "\n" : "") + trimmed(make_description(app)) + "\n" +
           make_usage(app, std::move(name)) + make_positionals(app) + optionsIn(*app, mode) + "\n" +
           make_footer(app);
}

std::string HelpText::optionsIn(const CLI::App& app, CLI::AppFormatMode mode) const
{
    std::string text;
    bool isShortened = false;
    for (const std::string& group : app.get_groups()) {
        const auto options = optionsOf(app, group);
        if (mode != CLI::AppFormatMode::All && isOfConnection(group)) {
            isShortened = isShortened || !options.empty();
        } else if (!group.empty() && !options.empty()) {
            text += make_group(group, false, options);
        }
    }
    return text + (isShortened ? "\nHow to connect, log in and trust the server: tarnis " +
                                     app.get_name() + " --help-all\n"
                               : "");
}

std::unique_ptr<Command> makeHelpCommand(CLI::App& program)
{
    return std::make_unique<HelpCommand>(program);
}

} // namespace TarnisTool
