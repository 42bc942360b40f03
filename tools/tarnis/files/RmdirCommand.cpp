#include "files/RmdirCommand.h"

namespace TarnisTool {

RmdirCommand::RmdirCommand(CLI::App& program)
    : EachPathCommand(program, "rmdir", "Remove empty remote directories")
{}

void RmdirCommand::workOn(RemotePlace& place, const std::string& path)
{
    const std::string id = fileIdOf(path);
    if (!isDirectory(place.find(id).type)) {
        place.refuse("cannot remove", id, "it is no directory");
    }
    if (!place.system().directoryRemove(id)) {
        const auto why = FileSystem::Failure::last();
        const bool isUnexplained = why.code() == FileSystem::FailureCode::Other;
        const bool isFull = isUnexplained && !place.system().directoryListFileNames(id).empty();
        place.failBecause("cannot remove", id, why, isFull ? "it is not empty" : "");
    }
}

} // namespace TarnisTool
