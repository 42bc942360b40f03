#pragma once

#include "files/PathsCommand.h"

#include <string>

namespace TarnisTool {

/// `tarnis readlink`: shows what stands in symbolic links.
class ReadlinkCommand : public PathsCommand
{
public:
    explicit ReadlinkCommand(CLI::App& program);

private:
    void workOn(RemotePlace& place, const std::string& path) override;
};

} // namespace TarnisTool
