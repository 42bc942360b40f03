#pragma once

#include "files/JsonList.h"
#include "files/PathsCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis df`: shows the room on remote volumes.
class DfCommand : public PathsCommand
{
public:
    explicit DfCommand(CLI::App& program);

private:
    struct Row
    {
        std::string path;
        FileSystem::StorageSystemStorageInfo room;
    };

    void workOn(RemotePlace& place, const std::string& path) override;
    void finish() override;
    void printTable() const;

    bool isJson_ = false;
    std::vector<Row> rows_;
};

} // namespace TarnisTool
