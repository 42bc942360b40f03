#include "files/TouchCommand.h"

#include "terminal/Units.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

TouchCommand::TouchCommand(CLI::App& program)
    : PathsCommand(program, "touch", "Set the modification time of remote files")
{
    commandLine()
        .add_option("-d,--date", timeText_,
                    "The time: \"YYYY-MM-DD HH:MM:SS\", with \"Z\" or \"+HH:MM\" behind it for "
                    "another zone than this machine's, or @SECONDS since 1970; without it: now")
        ->type_name("TIME");
    commandLine().footer("A missing file is made, empty. Servers keep whole seconds from 1970 to\n"
                         "2106; another time is a failure.");
}

void TouchCommand::prepare(const std::vector<std::string>& operands)
{
    static_cast<void>(operands);
    time_ = timeText_.empty()
                ? std::chrono::time_point_cast<FileSystem::StorageSystemTimePoint::duration>(
                      std::chrono::system_clock::now())
                : parseTime(timeText_);
}

void TouchCommand::workOn(RemotePlace& place, const std::string& path)
{
    using Mode = FileSystem::StorageSystemFileOpenModeFlag;
    const std::string id = fileIdOf(path);
    place.forgetFailures();
    const bool isThere = place.system().fileInfo(id) ||
                         place.system().fileOpen(id, Mode::Write | Mode::Create) != nullptr;
    if (!isThere) {
        const std::string said = place.lastReason();
        place.fail("cannot make", id, joinReasons(place.writingProblem(id), said));
    }
    place.forgetFailures();
    if (!place.system().fileSetModTime(id, time_)) {
        place.fail("cannot set the time of", id, "the server does not take " + isoTime(time_));
    }
}

} // namespace TarnisTool
