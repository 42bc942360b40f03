#include "files/ChmodCommand.h"

#include "files/PermissionChange.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

ChmodCommand::ChmodCommand(CLI::App& program)
    : PathsCommand(program, "chmod", "Set the permissions of remote files",
                   "permissions host:path...", 1)
{
    commandLine().footer(
        "Permissions are octal (644) or a change (u+x, go-rwx, a=r,u+w). A\n"
        "symbolic link is followed. Only the nine permission bits are known here: to set them\n"
        "takes set-ID and sticky bits away. A change that begins with \"-\" follows \"--\":\n"
        "tarnis chmod -- -x host:path");
}

void ChmodCommand::prepare(const std::vector<std::string>& operands)
{
    change_ = operands.front();
    static_cast<void>(changedPermissions(change_, {}));
}

void ChmodCommand::workOn(RemotePlace& place, const std::string& path)
{
    std::string id = fileIdOf(path);
    auto info = place.find(id);
    if (isSymbolicLink(info.type)) {
        id = place.system().fileSymbolicLinkTargetFileId(id, true).value_or(id);
        info = place.find(id);
    }
    place.forgetFailures();
    const auto permissions = changedPermissions(change_, info.permissions);
    if (!place.system().fileSetPermissions(id, permissions)) {
        place.fail("cannot set the permissions of", id);
    }
}

} // namespace TarnisTool
