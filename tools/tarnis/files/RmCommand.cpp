#include "files/RmCommand.h"

#include "Failure.h"
#include "files/Cancellation.h"
#include "files/TreeWalk.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

namespace {

void removeEntry(RemotePlace& place, const std::string& path,
                 const FileSystem::StorageSystemFileInfo& info)
{
    place.forgetFailures();
    const bool isGone = isDirectory(info.type) ? place.system().directoryRemove(path)
                                               : place.system().fileRemove(path);
    if (!isGone) {
        place.fail("cannot remove", path);
    }
}

} // namespace

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
        removeEntry(place, id, info);
        return;
    }
    if (!isRecursive_) {
        place.fail("cannot remove", id, "it is a directory; -r removes it and all below it");
    }
    if (nameOf(id).empty()) {
        place.fail("cannot remove", id, "it has no name of its own");
    }
    removeTree(place, id);
    removeEntry(place, id, info);
}

void RmCommand::removeTree(RemotePlace& place, const std::string& root)
{
    const Cancellation cancellation(place.session());
    TreeWalk walk(place, cancellation);
    const auto entries = walk.entriesBelow(root);
    std::size_t removed = 0;
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        if (cancellation.isRequested()) {
            break;
        }
        try {
            removeEntry(place, joinPath(root, entry->path), entry->info);
            ++removed;
        } catch (const Failure& failure) {
            note(place, failure);
        }
    }
    if (cancellation.isRequested()) {
        place.requireAlive();
        throw Failure(FailureKind::Cancelled, "interrupted the removal of", place.display(root),
                      "removed " + std::to_string(removed) + " of " +
                          std::to_string(entries.size()) + " entries");
    }
    if (walk.isIncomplete()) {
        place.fail("cannot remove", root, "not all of it could be listed");
    }
}

} // namespace TarnisTool
