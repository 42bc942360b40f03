#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace TarnisTool {

/// The groups of options that sub-commands have in common: left out of a sub-command's short help.
namespace OptionGroup {
constexpr const char* connection = "Connection";
constexpr const char* hostKey = "Trust in the server";
constexpr const char* login = "Login";
} // namespace OptionGroup

/// How a sub-command's help looks: `--help` has its own options, `--help-all` those of the
/// connection too.
class HelpText : public CLI::Formatter
{
public:
    /// \param operands what stands behind the options in the line of usage.
    explicit HelpText(std::string operands);

    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override;

private:
    std::string optionsIn(const CLI::App& app, CLI::AppFormatMode mode) const;

    std::string operands_;
};

} // namespace TarnisTool
