#pragma once

#include "Command.h"
#include "login/ConnectionOptions.h"

namespace TarnisTool {

/// `tarnis hostkey`: shows a server's key, for a known-hosts file and for comparing.
class HostKeyCommand : public Command
{
public:
    explicit HostKeyCommand(CLI::App& program);

    int run(const std::vector<std::string>& words) override;

private:
    std::string targetText_;
    ReachOptions options_;
    bool isJson_ = false;
};

} // namespace TarnisTool
