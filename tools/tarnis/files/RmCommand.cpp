#include "files/RmCommand.h"

#include "Failure.h"
#include "files/Cancellation.h"
#include "files/EntryNames.h"
#include "files/TreeRemoval.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

RmCommand::RmCommand(CLI::App& program)
    : PathsCommand(program, "rm", "Remove remote files")
{
    commandLine().add_flag("-r,--recursive", isRecursive_,
                           "Remove directories with all below them");
    commandLine().footer("A symbolic link is removed itself, never what it leads to. Names are\n"
                         "taken as they are: there are no patterns here.");
}

void RmCommand::workOn(RemotePlace& place, const std::string& path)
{
    const std::string id = fileIdOf(path);
    const auto info = place.find(id);
    if (!isDirectory(info.type)) {
        removeFile(place, id);
        return;
    }
    if (!isRecursive_) {
        place.fail("cannot remove", id, "it is a directory; -r removes it and all below it");
    }
    if (nameOf(id).empty()) {
        place.fail("cannot remove", id, "it has no name of its own");
    }
    removeTree(place, id);
}

void RmCommand::removeFile(RemotePlace& place, const std::string& path)
{
    place.forgetFailures();
    if (!place.system().fileRemove(path)) {
        place.fail("cannot remove", path);
    }
}

void RmCommand::removeTree(RemotePlace& place, const std::string& root)
{
    const Cancellation cancellation(place.session());
    TreeRemoval removal(place, cancellation, [&](const Failure& failure) { note(place, failure); });
    removal.remove(root);
    if (cancellation.isRequested()) {
        place.requireAlive();
        throw Failure(FailureKind::Cancelled, "interrupted the removal of", place.display(root),
                      "removed " + std::to_string(removal.removedCount()) +
                          (removal.removedCount() == 1 ? " entry" : " entries"));
    }
}

} // namespace TarnisTool
