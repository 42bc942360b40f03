#include "files/ReadlinkCommand.h"

#include <iostream>

namespace TarnisTool {

ReadlinkCommand::ReadlinkCommand(CLI::App& program)
    : PathsCommand(program, "readlink", "Show where remote symbolic links lead")
{}

void ReadlinkCommand::workOn(RemotePlace& place, const std::string& path)
{
    const std::string id = fileIdOf(path);
    if (!isSymbolicLink(place.find(id).type)) {
        place.refuse("cannot read the link", id, "it is no symbolic link");
    }
    const auto target = place.system().fileSymbolicLinkTarget(id);
    if (!target) {
        place.failBecause("cannot read the link", id, FileSystem::Failure::last());
    }
    std::cout << forOutput(*target) << '\n';
}

} // namespace TarnisTool
