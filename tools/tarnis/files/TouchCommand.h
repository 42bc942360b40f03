#pragma once

#include "files/PathsCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis touch`: sets the modification time of remote files.
class TouchCommand : public EachPathCommand
{
public:
    explicit TouchCommand(CLI::App& program);

private:
    void prepare(const std::vector<std::string>& operands) override;
    void workOn(RemotePlace& place, const std::string& path) override;

    std::string timeText_;
    FileSystem::StorageSystemTimePoint time_;
};

} // namespace TarnisTool
