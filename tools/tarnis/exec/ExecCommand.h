#pragma once

#include "Command.h"
#include "login/ConnectionOptions.h"

namespace TarnisTool {

/// `tarnis exec`: runs a command on a server.
class ExecCommand : public Command
{
public:
    explicit ExecCommand(CLI::App& program);

    int run(const std::vector<std::string>& words) override;

    int failureCode() const override { return ExitCode::execFailure; }

private:
    std::string targetText_;
    LoginOptions options_;
    std::chrono::seconds timeout_{0};
    bool hasNoInput_ = false;
};

} // namespace TarnisTool
