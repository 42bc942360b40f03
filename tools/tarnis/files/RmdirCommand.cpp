#include "files/RmdirCommand.h"

namespace TarnisTool {

RmdirCommand::RmdirCommand(CLI::App& program)
    : PathsCommand(program, "rmdir", "Remove empty remote directories")
{}

void RmdirCommand::workOn(RemotePlace& place, const std::string& path)
{
    const std::string id = fileIdOf(path);
    if (!isDirectory(place.find(id).type)) {
        place.fail("cannot remove", id, "it is no directory");
    }
    place.forgetFailures();
    if (!place.system().directoryRemove(id)) {
        const std::string said = place.lastReason();
        const bool isEmpty = place.system().directoryListFileNames(id).empty();
        place.forgetFailures();
        place.fail("cannot remove", id, joinReasons(isEmpty ? "" : "it is not empty", said));
    }
}

} // namespace TarnisTool
