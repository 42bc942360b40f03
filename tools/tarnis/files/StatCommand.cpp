#include "files/StatCommand.h"

#include "files/EntryText.h"
#include "terminal/Units.h"

#include <CLI/CLI.hpp>

#include <iostream>

namespace TarnisTool {

StatCommand::StatCommand(CLI::App& program)
    : PathsCommand(program, "stat", "Tell what is known of remote files")
{
    commandLine().add_flag("--json", isJson_, "Print one JSON array with an object for each path");
    commandLine().footer(
        "A symbolic link is described itself. Times are in this machine's time zone, in JSON in\n"
        "UTC. In JSON, a name that is no UTF-8 has its bytes in nameBase64.");
}

void StatCommand::workOn(RemotePlace& place, const std::string& path)
{
    const std::string id = fileIdOf(path);
    const auto info = place.find(id);
    const auto target = isSymbolicLink(info.type) ? place.system().fileSymbolicLinkTarget(id)
                                                  : std::optional<std::string>();
    const auto mode = place.mode(id);
    if (isJson_) {
        json_.add(info, path, target, mode);
        return;
    }
    const std::uint32_t bits = mode.value_or(info.permissions.raw());
    std::cout << "path:        " << forOutput(path.empty() ? "." : path) << '\n'
              << "type:        " << kindOf(info) << '\n'
              << "size:        " << info.size << '\n'
              << "permissions: " << octalMode(bits) << " (" << modeText(info, bits) << ")\n"
              << "modified:    " << localTime(info.modTime) << '\n';
    if (target) {
        std::cout << "leads to:    " << forOutput(*target) << '\n';
    }
}

void StatCommand::finish()
{
    if (isJson_) {
        json_.print();
    }
}

} // namespace TarnisTool
