#pragma once

#include "files/PathsCommand.h"

#include <string>

namespace TarnisTool {

/// `tarnis cat`: writes remote files to standard output.
class CatCommand : public EachPathCommand
{
public:
    explicit CatCommand(CLI::App& program);

private:
    void workOn(RemotePlace& place, const std::string& path) override;
};

} // namespace TarnisTool
