#pragma once

#include "files/CopyCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis put`: copies files of this machine to a server.
class PutCommand : public CopyCommand
{
public:
    explicit PutCommand(CLI::App& program);

private:
    int putInput(const std::vector<std::string>& operands);
    int copy(const std::vector<std::string>& operands) override;
};

} // namespace TarnisTool
