#pragma once

#include "files/PathsCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis rm`: removes remote files.
class RmCommand : public PathsCommand
{
public:
    explicit RmCommand(CLI::App& program);

private:
    class Removal;

    void workOnAll(RemotePlace& place, const std::vector<std::string>& paths) override;

    bool isRecursive_ = false;
    bool isForced_ = false;
};

} // namespace TarnisTool
