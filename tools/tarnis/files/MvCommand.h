#pragma once

#include "files/Cancellation.h"
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

    static void move(RemoteEndpoint& place, const Cancellation& cancellation,
                     const std::string& source, const std::string& target);
};

} // namespace TarnisTool
