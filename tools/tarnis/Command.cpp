#include "Command.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <utility>

namespace TarnisTool {

namespace {

class UsageFormatter : public CLI::Formatter
{
public:
    explicit UsageFormatter(std::string operands)
        : operands_(std::move(operands))
    {}

    std::string make_usage(const CLI::App* app, std::string name) const override
    {
        std::string usage = CLI::Formatter::make_usage(app, std::move(name));
        while (!usage.empty() && usage.back() == '\n') {
            usage.pop_back();
        }
        return usage + " " + operands_ + "\n";
    }

private:
    std::string operands_;
};

} // namespace

Command::Command(CLI::App& program, const std::string& name, const std::string& description)
    : commandLine_(*program.add_subcommand(name, description))
{}

bool Command::isChosen() const
{
    return commandLine_.parsed();
}

void Command::showInUsage(const std::string& operands)
{
    commandLine_.formatter(std::make_shared<UsageFormatter>(operands));
}

} // namespace TarnisTool
