#pragma once

#include "files/CopyCommand.h"
#include "files/StreamTarget.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis get`: copies remote files to this machine.
class GetCommand : public CopyCommand
{
public:
    explicit GetCommand(CLI::App& program);

private:
    int copy(const std::vector<std::string>& operands) override;
    void writeInto(StreamTarget& target, RemotePlace& remote, const std::string& source) const;
};

} // namespace TarnisTool
