#include "HelpText.h"

#include <utility>
#include <vector>

namespace TarnisTool {

namespace {

bool isOfConnection(const std::string& group)
{
    return group == OptionGroup::connection || group == OptionGroup::hostKey ||
           group == OptionGroup::login;
}

std::vector<const CLI::Option*> optionsOf(const CLI::App& app, const std::string& group)
{
    return app.get_options([&group](const CLI::Option* option) {
        return option->get_group() == group && option->nonpositional();
    });
}

} // namespace

HelpText::HelpText(std::string operands)
    : operands_(std::move(operands))
{}

std::string HelpText::make_usage(const CLI::App* app, std::string name) const
{
    std::string usage = CLI::Formatter::make_usage(app, std::move(name));
    while (!usage.empty() && usage.back() == '\n') {
        usage.pop_back();
    }
    return usage + (operands_.empty() ? "" : " " + operands_) + "\n";
}

std::string HelpText::make_help(const CLI::App* app, std::string name,
                                CLI::AppFormatMode mode) const
{
    // Among those of all sub-commands, where the parser gives the name without the program's.
    const bool isOneOfAll = mode == CLI::AppFormatMode::Sub;
    if (isOneOfAll) {
        name = "tarnis " + app->get_name();
        mode = CLI::AppFormatMode::All;
    }
    return (isOneOfAll ? "\n" : "") + make_description(app) + make_usage(app, std::move(name)) +
           make_positionals(app) + optionsIn(*app, mode) + "\n" + make_footer(app);
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

} // namespace TarnisTool
