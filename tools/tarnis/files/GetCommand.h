#pragma once

#include "files/CopyCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis get`: copies remote files to this machine.
class GetCommand : public CopyCommand
{
public:
    explicit GetCommand(CLI::App& program);

private:
    int work(const std::vector<std::string>& operands) override;
};

} // namespace TarnisTool
