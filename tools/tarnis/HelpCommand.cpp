#include "HelpCommand.h"

#include "Failure.h"

#include <CLI/CLI.hpp>

#include <iostream>

namespace TarnisTool {

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

} // namespace TarnisTool
