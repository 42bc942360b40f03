#pragma once

#include "files/JsonList.h"
#include "files/PathsCommand.h"

#include <string>

namespace TarnisTool {

/// `tarnis stat`: tells what is known of paths.
class StatCommand : public PathsCommand
{
public:
    explicit StatCommand(CLI::App& program);

private:
    void workOn(RemotePlace& place, const std::string& path) override;
    void finish() override;

    bool isJson_ = false;
    JsonList json_;
};

} // namespace TarnisTool
