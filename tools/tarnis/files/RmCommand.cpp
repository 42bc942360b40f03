#include "files/RmCommand.h"

#include "Failure.h"
#include "files/Cancellation.h"
#include "files/EntryNames.h"
#include "files/Pattern.h"
#include "files/TreeRemoval.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

RmCommand::RmCommand(CLI::App& program)
    : PathsCommand(program, "rm", "Remove remote files")
{
    commandLine().add_flag("-r,--recursive", isRecursive_,
                           "Remove directories with all below them");
    commandLine().add_flag("-f,--force", isForced_, "What is not there is no failure");
    commandLine().footer(
        "A symbolic link is removed itself, never what it leads to. Each part of a path may be a\n"
        "pattern, as with ls; a name that exists is that name.");
}

void RmCommand::workOn(RemotePlace& place, const std::string& path)
{
    const auto each = [&](const Failure& failure) { note(place, failure); };
    const auto attempt = [&](const auto& work) {
        try {
            work();
        } catch (const Failure& failure) {
            if (!isForced_ || failure.kind() != FailureKind::NothingThere) {
                note(place, failure);
            }
        }
    };
    attempt([&] {
        for (const std::string& id : pathsFor(place, fileIdOf(path), "cannot remove", each)) {
            attempt([&] { remove(place, id); });
        }
    });
}

void RmCommand::remove(RemotePlace& place, const std::string& id)
{
    const auto info = place.find(id);
    if (!isDirectory(info.type) || !place.isDirectoryItself(id)) {
        removeFile(place, id);
        return;
    }
    if (!isRecursive_) {
        place.refuse("cannot remove", id, "it is a directory; -r removes it and all below it");
    }
    if (nameOf(id).empty()) {
        place.refuse("cannot remove", id, "it has no name of its own");
    }
    removeTree(place, id);
}

void RmCommand::removeFile(RemotePlace& place, const std::string& path)
{
    if (!place.system().fileRemove(path)) {
        place.failBecause("cannot remove", path, FileSystem::Failure::last());
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
