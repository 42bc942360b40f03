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
    // Among those of all sub-commands, where the parser gives the name without the program's.
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

} // namespace TarnisTool
