#include "files/MkdirCommand.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

MkdirCommand::MkdirCommand(CLI::App& program)
    : PathsCommand(program, "mkdir", "Make remote directories")
{
    commandLine().add_flag("-p,--parents", makesParents_,
                           "Make missing parents too; a directory that exists is no failure");
}

void MkdirCommand::workOn(RemotePlace& place, const std::string& path)
{
    const std::string id = fileIdOf(path);
    place.forgetFailures();
    const bool isMade = makesParents_ ? place.system().directoryMakePath(id, false)
                                      : place.system().directoryCreateAs(id, true);
    if (isMade) {
        return;
    }
    const std::string said = place.lastReason();
    const bool isTaken = place.system().fileInfo(id).has_value();
    const std::string problem =
        isTaken ? "something stands there already" : place.writingProblem(id);
    place.forgetFailures();
    place.fail("cannot make the directory", id, joinReasons(problem, said));
}

} // namespace TarnisTool
