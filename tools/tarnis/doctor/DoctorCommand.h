#pragma once

#include "Command.h"
#include "login/ConnectionOptions.h"

namespace TarnisTool {

/// `tarnis doctor`: finds out where the way to a server is blocked, and what to do about it.
class DoctorCommand : public Command
{
public:
    explicit DoctorCommand(CLI::App& program);

    int run(const std::vector<std::string>& words) override;

private:
    std::string targetText_;
    LoginOptions options_;
    bool writes_ = false;
    bool isJson_ = false;
};

} // namespace TarnisTool
