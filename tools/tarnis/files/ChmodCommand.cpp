#include "files/ChmodCommand.h"

#include "files/EntryText.h"
#include "files/PermissionChange.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

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

} // namespace TarnisTool
