// The small commands that change what stands at a path.

#include "Commands.h"
#include "Failure.h"
#include "files/EntryOutput.h"
#include "files/FileCommand.h"
#include "terminal/Times.h"

#include <FileSystem/StorageSystemFile.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace TarnisTool {

namespace {

/// `tarnis mkdir`: makes remote directories.
class MkdirCommand : public EachPathCommand
{
public:
    explicit MkdirCommand(CLI::App& program);

private:
    void workOn(RemoteEndpoint& endpoint, const std::string& path) override;

    bool makesParents_ = false;
};

MkdirCommand::MkdirCommand(CLI::App& program)
    : EachPathCommand(program, "mkdir", "Make remote directories")
{
    commandLine().add_flag("-p,--parents", makesParents_,
                           "Make missing parents too; a directory that exists is no failure");
}

void MkdirCommand::workOn(RemoteEndpoint& endpoint, const std::string& path)
{
    const std::string id = fileIdOf(path);
    const bool isMade = makesParents_ ? endpoint.system().directoryMakePath(id, false)
                                      : endpoint.system().directoryCreateAs(id, true);
    if (isMade) {
        return;
    }
    const auto why = FileSystem::Failure::last();
    endpoint.failBecause("cannot make the directory", id, why, endpoint.obstacleAt(id, why));
}

/// `tarnis rmdir`: removes empty remote directories.
class RmdirCommand : public EachPathCommand
{
public:
    explicit RmdirCommand(CLI::App& program);

private:
    void workOn(RemoteEndpoint& endpoint, const std::string& path) override;
};

RmdirCommand::RmdirCommand(CLI::App& program)
    : EachPathCommand(program, "rmdir", "Remove empty remote directories")
{}

void RmdirCommand::workOn(RemoteEndpoint& endpoint, const std::string& path)
{
    const std::string id = fileIdOf(path);
    if (!isDirectory(endpoint.find(id).type)) {
        endpoint.refuse("cannot remove", id, "it is no directory");
    }
    if (!endpoint.system().directoryRemove(id)) {
        const auto why = FileSystem::Failure::last();
        const bool isUnexplained = why.code() == FileSystem::FailureCode::Other;
        const bool isFull = isUnexplained && !endpoint.system().directoryListFileNames(id).empty();
        endpoint.failBecause("cannot remove", id, why, isFull ? "it is not empty" : "");
    }
}

/// `tarnis ln -s`: makes symbolic links on a server.
class LnCommand : public FileCommand
{
public:
    explicit LnCommand(CLI::App& program);

private:
    int work(const std::vector<std::string>& operands) override;
    void makeLink(RemoteEndpoint& endpoint, const std::string& target,
                  const std::string& path) const;

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
    RemoteEndpoint remote(path.target, loginOptions());
    const std::string id = fileIdOf(path.path);
    // Where a link to a directory stands, the new link takes its place rather than going into the
    // directory.
    const bool isInside = remote.system().directoryExists(id, false);
    makeLink(remote, operands.front(), isInside ? joinPath(id, nameOf(operands.front())) : id);
    return ExitCode::success;
}

void LnCommand::makeLink(RemoteEndpoint& endpoint, const std::string& target,
                         const std::string& path) const
{
    const auto& system = endpoint.system();
    // fileSymbolicLinkCreateAs() removes what stands at the path, a directory too: so it is checked
    // first.
    const auto there = system.fileInfo(path);
    if (there && (!isForced_ || isDirectory(there->type))) {
        endpoint.refuse("cannot make the link", path, "something stands there already");
    }
    if (!system.fileSymbolicLinkCreateAs(target, path, false)) {
        endpoint.failBecause("cannot make the link", path, FileSystem::Failure::last());
    }
}

constexpr std::uint32_t bitsOfOne = 07;
constexpr std::uint32_t permissionBits = 0777;
constexpr std::uint32_t setUserId = 04000;
constexpr std::uint32_t setGroupId = 02000;
constexpr std::uint32_t sticky = 01000;

bool has(std::string_view letters, char letter)
{
    return letters.find(letter) != std::string_view::npos;
}

/// The bits of read, write and execute for one class of users.
std::uint32_t rightsIn(std::string_view letters)
{
    return (has(letters, 'r') ? 04U : 0U) | (has(letters, 'w') ? 02U : 0U) |
           (has(letters, 'x') ? 01U : 0U);
}

/// An empty list of classes means all of them.
bool isMeant(char user, std::string_view who)
{
    return who.empty() || has(who, 'a') || has(who, user);
}

/// The same bits for each of the classes named.
std::uint32_t spread(std::uint32_t bits, std::string_view who)
{
    std::uint32_t result = 0;
    constexpr std::string_view classes = "ogu";
    for (std::size_t i = 0; i < classes.size(); ++i) {
        if (isMeant(classes[i], who)) {
            result |= bits << 3U * i;
        }
    }
    return result;
}

/// Set-ID bits belong to a class, the sticky bit to none.
std::uint32_t specialBitsIn(std::string_view letters, std::string_view who)
{
    std::uint32_t bits = has(letters, 't') ? sticky : 0U;
    if (has(letters, 's')) {
        bits |= (isMeant('u', who) ? setUserId : 0U) | (isMeant('g', who) ? setGroupId : 0U);
    }
    return bits;
}

std::uint32_t applied(const std::smatch& clause, std::uint32_t mode)
{
    const std::string who = clause[1];
    const std::string letters = clause[3];
    const std::uint32_t bits = spread(rightsIn(letters), who) | specialBitsIn(letters, who);
    switch (clause[2].str().front()) {
    case '+':
        return mode | bits;
    case '-':
        return mode & ~bits;
    default:
        return (mode & ~spread(bitsOfOne, who)) | bits;
    }
}

/// The twelve permission bits after a change, which is octal ("644", "4755") or symbolic ("u+x",
/// "go-rwx", "a=r,u+w", "g+s", "+t"). Three octal digits, and changes without "s" and "t", leave
/// set-ID and sticky bits as they are. Throws UsageError for what is neither.
std::uint32_t changedMode(const std::string& change, std::uint32_t mode)
{
    static const std::regex octal("[0-7]{3,4}");
    static const std::regex clauseForm("([ugoa]*)([-+=])([rwxst]*)");
    constexpr std::size_t digitsForAll = 4;
    if (std::regex_match(change, octal)) {
        const auto bits = static_cast<std::uint32_t>(std::stoul(change, nullptr, 8));
        return change.size() == digitsForAll ? bits : (mode & ~permissionBits) | bits;
    }
    std::istringstream clauses(change);
    std::string clause;
    while (std::getline(clauses, clause, ',')) {
        std::smatch match;
        if (!std::regex_match(clause, match, clauseForm)) {
            clause.clear();
            break;
        }
        mode = applied(match, mode);
    }
    if (clause.empty()) {
        throw UsageError("\"" + change + "\" are no permissions: write 644, u+x or go-rwx");
    }
    return mode;
}

/// `tarnis chmod`: sets the permissions of remote files.
class ChmodCommand : public EachPathCommand
{
public:
    explicit ChmodCommand(CLI::App& program);

private:
    void prepare(const std::vector<std::string>& operands) override;
    void workOn(RemoteEndpoint& endpoint, const std::string& path) override;

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

void ChmodCommand::workOn(RemoteEndpoint& endpoint, const std::string& path)
{
    std::string id = fileIdOf(path);
    auto info = endpoint.find(id);
    if (isSymbolicLink(info.type)) {
        id = endpoint.system().fileSymbolicLinkTargetFileId(id, true).value_or(id);
        info = endpoint.find(id);
    }
    const std::uint32_t mode =
        changedMode(change_, endpoint.mode(id).value_or(info.permissions.raw()));
    using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;
    if (!endpoint.system().fileSetPermissions(id, Permissions(mode))) {
        endpoint.failBecause("cannot set the permissions of", id, FileSystem::Failure::last());
    }
    const auto kept = endpoint.mode(id);
    if (kept && *kept != mode) {
        endpoint.refuse("cannot set the permissions of", id,
                        "the server agreed to " + octalMode(mode) + " and keeps " +
                            octalMode(*kept));
    }
}

bool makeFile(const FileSystem::FileSystem2& system, const std::string& path)
{
    using Mode = FileSystem::StorageSystemFileOpenModeFlag;
    const auto file = system.fileOpen(path, Mode::Write | Mode::Create);
    return file != nullptr && file->close();
}

/// `tarnis touch`: sets the modification time of remote files.
class TouchCommand : public EachPathCommand
{
public:
    explicit TouchCommand(CLI::App& program);

private:
    void prepare(const std::vector<std::string>& operands) override;
    void workOn(RemoteEndpoint& endpoint, const std::string& path) override;

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

void TouchCommand::workOn(RemoteEndpoint& endpoint, const std::string& path)
{
    const std::string id = fileIdOf(path);
    const auto info = endpoint.system().fileInfo(id);
    if (!info && !makeFile(endpoint.system(), id)) {
        const auto why = FileSystem::Failure::last();
        endpoint.failBecause("cannot make", id, why, endpoint.obstacleAt(id, why));
    }
    if (!info && timeText_.empty()) {
        // The file has just been made, so its time is right, and some servers set no times.
        return;
    }
    if (!endpoint.system().fileSetModTime(id, time_)) {
        const bool isLink = info && isSymbolicLink(info->type);
        endpoint.failBecause("cannot set the time of", id, FileSystem::Failure::last(),
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
