#include "files/ReadlinkCommand.h"

#include "Failure.h"

#include <iostream>

namespace TarnisTool {

ReadlinkCommand::ReadlinkCommand(CLI::App& program)
    : LookUpCommand(program, "readlink", "Show where remote symbolic links lead")
{}

void ReadlinkCommand::ask(RemotePlace& place, Inquiry& inquiry, const std::string& path,
                          std::function<void(Tell)> done)
{
    const std::string id = fileIdOf(path);
    inquiry.lookUp(id, [=, &place, &inquiry](const auto& why, const auto& info) {
        if (why) {
            done([=, &place] { place.failBecause("cannot find", id, why); });
        } else if (!isSymbolicLink(info.type)) {
            done([=, &place] {
                throw place.refusal("cannot read the link", id, "it is no symbolic link");
            });
        } else {
            inquiry.readLink(id, [=, &place](const auto& unread, const std::string& target) {
                done([=, &place] {
                    if (unread) {
                        place.failBecause("cannot read the link", id, unread);
                    }
                    std::cout << forOutput(target) << '\n';
                });
            });
        }
    });
}

} // namespace TarnisTool
