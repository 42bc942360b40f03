#include "files/StatCommand.h"

#include "files/EntryText.h"
#include "terminal/Units.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <utility>

namespace TarnisTool {

StatCommand::StatCommand(CLI::App& program)
    : LookUpCommand(program, "stat", "Tell what is known of remote files")
{
    commandLine().add_flag("--json", isJson_, "Print one JSON array with an object for each path");
    commandLine().footer(
        "A symbolic link is described itself. Times are in this machine's time zone, in JSON in\n"
        "UTC. In JSON, a name that is no UTF-8 has its bytes in nameBase64.");
}

void StatCommand::ask(RemotePlace& place, Inquiry& inquiry, const std::string& path,
                      std::function<void(Tell)> done)
{
    const std::string id = fileIdOf(path);
    inquiry.lookUp(id, [=, &place, &inquiry](const auto& why, const Info& info) {
        if (why) {
            done([&place, id, why] { place.failBecause("cannot find", id, why); });
        } else if (!isSymbolicLink(info.type)) {
            done([=, &place] { tell(place, path, info, std::nullopt); });
        } else {
            inquiry.readLink(id, [=, &place](const auto& unread, const std::string& target) {
                done([=, &place] {
                    tell(place, path, info, unread ? std::nullopt : std::optional(target));
                });
            });
        }
    });
}

void StatCommand::tell(const RemotePlace& place, const std::string& path, const Info& info,
                       const std::optional<std::string>& target)
{
    // A queue tells no more than nine bits. All that a link has is known.
    const auto mode = isSymbolicLink(info.type) ? std::nullopt : place.mode(fileIdOf(path));
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
