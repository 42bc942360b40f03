#include "Command.h"

#include "Help.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace TarnisTool {

namespace {

/// An option that stands there twice counts as it stands there last, as users are used to.
CLI::App& declare(CLI::App& program, const std::string& name, const std::string& description)
{
    CLI::App& commandLine = *program.add_subcommand(name, description);
    commandLine.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    commandLine.formatter(std::make_shared<HelpText>(""));
    return commandLine;
}

} // namespace

Command::Command(CLI::App& program, const std::string& name, const std::string& description)
    : commandLine_(declare(program, name, description))
{}

bool Command::isChosen() const
{
    return commandLine_.parsed();
}

void Command::showInUsage(const std::string& operands)
{
    commandLine_.formatter(std::make_shared<HelpText>(operands));
}

void Command::keepShortHForItself()
{
    commandLine_.set_help_flag("--help", "Print this help message and exit");
}

} // namespace TarnisTool
