#pragma once

#include "files/LookUpCommand.h"

#include <string>

namespace TarnisTool {

/// `tarnis readlink`: shows what stands in symbolic links.
class ReadlinkCommand : public LookUpCommand
{
public:
    explicit ReadlinkCommand(CLI::App& program);

private:
    void ask(RemotePlace& place, Inquiry& inquiry, const std::string& path,
             std::function<void(Tell)> done) override;
};

} // namespace TarnisTool
