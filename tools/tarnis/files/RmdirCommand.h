#pragma once

#include "files/PathsCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis rmdir`: removes empty remote directories.
class RmdirCommand : public EachPathCommand
{
public:
    explicit RmdirCommand(CLI::App& program);

private:
    void workOn(RemotePlace& place, const std::string& path) override;
};

} // namespace TarnisTool
