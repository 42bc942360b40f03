#pragma once

#include "files/FileCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis ln -s`: makes symbolic links on a server.
class LnCommand : public FileCommand
{
public:
    explicit LnCommand(CLI::App& program);

private:
    int work(const std::vector<std::string>& operands) override;
    void makeLink(RemotePlace& place, const std::string& target, const std::string& path) const;

    bool isSymbolic_ = false;
    bool isForced_ = false;
};

} // namespace TarnisTool
