#pragma once

#include "Command.h"

namespace TarnisTool {

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

} // namespace TarnisTool
