#include "files/TouchCommand.h"

#include "Failure.h"
#include "terminal/Units.h"

#include <FileSystem/StorageSystemFile.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <limits>

namespace TarnisTool {

namespace {

bool makeFile(const FileSystem::FileSystem2& system, const std::string& path)
{
    using Mode = FileSystem::StorageSystemFileOpenModeFlag;
    const auto file = system.fileOpen(path, Mode::Write | Mode::Create);
    return file != nullptr && file->commit();
}

} // namespace

TouchCommand::TouchCommand(CLI::App& program)
    : EachPathCommand(program, "touch", "Set the modification time of remote files")
{
    commandLine()
        .add_option("-d,--date", timeText_,
                    "The time: \"YYYY-MM-DD HH:MM:SS\", with \"Z\" or \"+HH:MM\" behind it for "
                    "another zone than this machine's, or @SECONDS since 1970; without it: now")
        ->type_name("TIME");
    commandLine().footer("A missing file is made, empty. Servers keep whole seconds from 1970 to\n"
                         "2106.");
}

void TouchCommand::prepare(const std::vector<std::string>& operands)
{
    static_cast<void>(operands);
    time_ = timeText_.empty()
                ? std::chrono::time_point_cast<FileSystem::StorageSystemTimePoint::duration>(
                      std::chrono::system_clock::now())
                : parseTime(timeText_);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time_).time_since_epoch();
    if (seconds.count() < 0 || seconds.count() > std::numeric_limits<std::uint32_t>::max()) {
        throw UsageError("\"" + timeText_ +
                         "\" cannot be set: servers keep times from 1970 to 2106");
    }
}

void TouchCommand::workOn(RemotePlace& place, const std::string& path)
{
    const std::string id = fileIdOf(path);
    const auto info = place.system().fileInfo(id);
    if (!info && !makeFile(place.system(), id)) {
        const auto why = FileSystem::Failure::last();
        place.failBecause("cannot make", id, why, place.obstacleAt(id, why));
    }
    if (!info && timeText_.empty()) {
        // It has just been made, and there are servers that set no times.
        return;
    }
    if (!place.system().fileSetModTime(id, time_)) {
        const bool isLink = info && isSymbolicLink(info->type);
        place.failBecause("cannot set the time of", id, FileSystem::Failure::last(),
                          isLink ? "it is a symbolic link, whose own time no server sets"
                                 : "the server does not take " + isoTime(time_));
    }
}

} // namespace TarnisTool
