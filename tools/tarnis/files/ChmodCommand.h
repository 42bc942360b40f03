#pragma once

#include "files/PathsCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis chmod`: sets the permissions of remote files.
class ChmodCommand : public EachPathCommand
{
public:
    explicit ChmodCommand(CLI::App& program);

private:
    void prepare(const std::vector<std::string>& operands) override;
    void workOn(RemotePlace& place, const std::string& path) override;

    std::string change_;
};

} // namespace TarnisTool
