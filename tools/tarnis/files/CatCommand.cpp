#include "files/CatCommand.h"

#include "files/StreamedFile.h"

#include <unistd.h>

namespace TarnisTool {

CatCommand::CatCommand(CLI::App& program)
    : EachPathCommand(program, "cat", "Write remote files to standard output")
{}

void CatCommand::workOn(RemotePlace& place, const std::string& path)
{
    const std::string id = fileIdOf(path);
    if (place.system().directoryExists(id)) {
        place.refuse("cannot read", id, "it is a directory");
    }
    streamFile(place, id, {STDOUT_FILENO, "standard output"});
}

} // namespace TarnisTool
