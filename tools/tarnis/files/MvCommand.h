#pragma once

#include "files/FileCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis mv`: renames and moves files within a server.
class MvCommand : public FileCommand
{
public:
    explicit MvCommand(CLI::App& program);

private:
    int work(const std::vector<std::string>& operands) override;
};

} // namespace TarnisTool
