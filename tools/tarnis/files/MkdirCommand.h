#pragma once

#include "files/PathsCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis mkdir`: makes remote directories.
class MkdirCommand : public EachPathCommand
{
public:
    explicit MkdirCommand(CLI::App& program);

private:
    void workOn(RemotePlace& place, const std::string& path) override;

    bool makesParents_ = false;
};

} // namespace TarnisTool
