#pragma once

#include "files/JsonList.h"
#include "files/LookUpCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// `tarnis df`: shows the room on remote volumes.
class DfCommand : public LookUpCommand
{
public:
    explicit DfCommand(CLI::App& program);

private:
    struct Row
    {
        std::string path;
        FileSystem::StorageSystemStorageInfo room;
    };

    void ask(RemotePlace& place, Inquiry& inquiry, const std::string& path,
             std::function<void(Tell)> done) override;
    void finish() override;
    void printTable() const;

    bool isJson_ = false;
    std::vector<Row> rows_;
};

} // namespace TarnisTool
