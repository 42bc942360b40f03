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
    void workOn(RemotePlace& place, const std::string& path) override;
    void remove(RemotePlace& place, const std::string& id);
    static void removeFile(RemotePlace& place, const std::string& path);
    void removeTree(RemotePlace& place, const std::string& root);

    bool isRecursive_ = false;
    bool isForced_ = false;
};

} // namespace TarnisTool
