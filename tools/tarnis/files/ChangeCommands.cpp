// The small commands that change what stands at a path.

#include "Failure.h"
#include "files/EntryText.h"
#include "files/FileCommand.h"
#include "files/LeafCommands.h"
#include "files/PathsCommand.h"
#include "files/PermissionChange.h"
#include "terminal/Units.h"

#include <FileSystem/StorageSystemFile.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace TarnisTool {

namespace {

/// `tarnis mkdir`: makes remote directories.
class MkdirCommand : public EachPathCommand
{
public:
    explicit MkdirCommand(CLI::App& program);

private:
    void workOn(RemotePlace& place, const std::string& path) override;

    bool makesParents_ = false;
};

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

/// `tarnis rmdir`: removes empty remote directories.
class RmdirCommand : public EachPathCommand
{
public:
    explicit RmdirCommand(CLI::App& program);

private:
    void workOn(RemotePlace& place, const std::string& path) override;
};

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

/// `tarnis ln -s`: makes symbolic links on a server.
class LnCommand : public FileCommand
{
public:
    explicit LnCommand(CLI::App& program);

private:
    int work(const std::vector<std::string>& operands) override;
    void makeLink(RemotePlace& place, const std::string& target, const std::string& path) const;

    bool isSymbolic_ = false;
    bool isForced_ = false;
};

LnCommand::LnCommand(CLI::App& program)
    : FileCommand(program, "ln", "Make a symbolic link on a server", "target host:path", 2)
{
    commandLine().add_flag("-s,--symbolic", isSymbolic_,
                           "Make a symbolic link; there is no other kind here");
    commandLine().add_flag("-f,--force", isForced_, "Replace a file or link that stands there");
    commandLine().footer(
        "The target is put into the link as it is: a relative one counts from the link's own\n"
        "directory. Nothing has to stand there.\n\n"
        "Example: tarnis ln -s releases/5 alice@example.org:current");
}

int LnCommand::work(const std::vector<std::string>& operands)
{
    if (!isSymbolic_) {
        throw UsageError("ln makes symbolic links only: say so with -s");
    }
    if (operands.size() > 2) {
        throw UsageError("ln takes a target and one host:path");
    }
    const RemotePath path = remotePath(operands.back());
    RemotePlace remote(path.target, loginOptions());
    const std::string id = fileIdOf(path.path);
    // A link to a directory is the link that is meant, not the directory.
    const bool isInside = remote.system().directoryExists(id, false);
    makeLink(remote, operands.front(), isInside ? joinPath(id, nameOf(operands.front())) : id);
    return ExitCode::success;
}

void LnCommand::makeLink(RemotePlace& place, const std::string& target,
                         const std::string& path) const
{
    const auto& system = place.system();
    // The file system would make room for the link, whatever stands there.
    const auto there = system.fileInfo(path);
    if (there && (!isForced_ || isDirectory(there->type))) {
        place.refuse("cannot make the link", path, "something stands there already");
    }
    if (!system.fileSymbolicLinkCreateAs(target, path, false)) {
        place.failBecause("cannot make the link", path, FileSystem::Failure::last());
    }
}

/// `tarnis chmod`: sets the permissions of remote files.
class ChmodCommand : public EachPathCommand
{
public:
    explicit ChmodCommand(CLI::App& program);

private:
    void prepare(const std::vector<std::string>& operands) override;
    void workOn(RemotePlace& place, const std::string& path) override;

    std::string change_;
};

ChmodCommand::ChmodCommand(CLI::App& program)
    : EachPathCommand(program, "chmod", "Set the permissions of remote files",
                      "permissions host:path...", 1)
{
    commandLine().footer(
        "Permissions are octal (644) or a change (u+x, go-rwx, a=r,u+w, g+s, +t). A symbolic link\n"
        "is followed. Three digits, and changes without s and t, leave set-ID and sticky bits as\n"
        "they are; four digits (0644, 2775) set all. A change that begins with \"-\" follows\n"
        "\"--\": tarnis chmod -- -x host:path");
}

void ChmodCommand::prepare(const std::vector<std::string>& operands)
{
    change_ = operands.front();
    static_cast<void>(changedMode(change_, 0));
}

void ChmodCommand::workOn(RemotePlace& place, const std::string& path)
{
    std::string id = fileIdOf(path);
    auto info = place.find(id);
    if (isSymbolicLink(info.type)) {
        id = place.system().fileSymbolicLinkTargetFileId(id, true).value_or(id);
        info = place.find(id);
    }
    const std::uint32_t mode =
        changedMode(change_, place.mode(id).value_or(info.permissions.raw()));
    using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;
    if (!place.system().fileSetPermissions(id, Permissions(mode))) {
        place.failBecause("cannot set the permissions of", id, FileSystem::Failure::last());
    }
    const auto kept = place.mode(id);
    if (kept && *kept != mode) {
        place.refuse("cannot set the permissions of", id,
                     "the server agreed to " + octalMode(mode) + " and keeps " + octalMode(*kept));
    }
}

bool makeFile(const FileSystem::FileSystem2& system, const std::string& path)
{
    using Mode = FileSystem::StorageSystemFileOpenModeFlag;
    const auto file = system.fileOpen(path, Mode::Write | Mode::Create);
    return file != nullptr && file->commit();
}

/// `tarnis touch`: sets the modification time of remote files.
class TouchCommand : public EachPathCommand
{
public:
    explicit TouchCommand(CLI::App& program);

private:
    void prepare(const std::vector<std::string>& operands) override;
    void workOn(RemotePlace& place, const std::string& path) override;

    std::string timeText_;
    FileSystem::StorageSystemTimePoint time_;
};

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

} // namespace

std::unique_ptr<Command> makeMkdirCommand(CLI::App& program)
{
    return std::make_unique<MkdirCommand>(program);
}

std::unique_ptr<Command> makeRmdirCommand(CLI::App& program)
{
    return std::make_unique<RmdirCommand>(program);
}

std::unique_ptr<Command> makeLnCommand(CLI::App& program)
{
    return std::make_unique<LnCommand>(program);
}

std::unique_ptr<Command> makeChmodCommand(CLI::App& program)
{
    return std::make_unique<ChmodCommand>(program);
}

std::unique_ptr<Command> makeTouchCommand(CLI::App& program)
{
    return std::make_unique<TouchCommand>(program);
}

} // namespace TarnisTool
