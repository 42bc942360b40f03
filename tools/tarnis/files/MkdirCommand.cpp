#include "files/MkdirCommand.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

MkdirCommand::MkdirCommand(CLI::App& program)
    : EachPathCommand(program, "mkdir", "Make remote directories")
{
    commandLine().add_flag("-p,--parents", makesParents_,
                           "Make missing parents too; a directory that exists is no failure");
}

void MkdirCommand::workOn(RemotePlace& place, const std::string& path)
{
    const std::string id = fileIdOf(path);
    const bool isMade = makesParents_ ? place.system().directoryMakePath(id, false)
                                      : place.system().directoryCreateAs(id, true);
    if (isMade) {
        return;
    }
    const auto why = FileSystem::Failure::last();
    place.failBecause("cannot make the directory", id, why, place.obstacleAt(id, why));
}

} // namespace TarnisTool
