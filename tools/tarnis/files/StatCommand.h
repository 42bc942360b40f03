#pragma once

#include "files/JsonList.h"
#include "files/LookUpCommand.h"

#include <optional>
#include <string>

namespace TarnisTool {

/// `tarnis stat`: tells what is known of paths.
class StatCommand : public LookUpCommand
{
public:
    explicit StatCommand(CLI::App& program);

private:
    using Info = FileSystem::StorageSystemFileInfo;

    void ask(RemotePlace& place, Inquiry& inquiry, const std::string& path,
             std::function<void(Tell)> done) override;
    void finish() override;
    void tell(const RemotePlace& place, const std::string& path, const Info& info,
              const std::optional<std::string>& target);

    bool isJson_ = false;
    JsonList json_;
};

} // namespace TarnisTool
