#pragma once

#include "files/CopyCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis cp`: copies files within a server, through this machine.
class CpCommand : public CopyCommand
{
public:
    explicit CpCommand(CLI::App& program);

private:
    int copy(const std::vector<std::string>& operands) override;
};

} // namespace TarnisTool
