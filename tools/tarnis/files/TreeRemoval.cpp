#include "files/TreeRemoval.h"

#include "Failure.h"
#include "files/EntryNames.h"

#include <utility>

namespace TarnisTool {

TreeRemoval::TreeRemoval(RemotePlace& place, const Cancellation& cancellation,
                         std::function<void(const Failure&)> note)
    : place_(place)
    , cancellation_(cancellation)
    , note_(std::move(note))
{}

void TreeRemoval::remove(const std::string& root)
{
    enter(root);
    while (!directories_.empty() && !cancellation_.isRequested()) {
        const Directory& innermost = directories_.back();
        if (innermost.next < innermost.entries.size()) {
            removeNextEntry();
        } else {
            leave();
        }
    }
}

void TreeRemoval::enter(const std::string& path)
{
    try {
        directories_.push_back({path, entriesOf(path)});
    } catch (const Failure& failure) {
        if (place_.isAlive() && removeUnlisted(path)) {
            ++removedCount_;
        } else {
            keep(failure);
        }
    }
}

/// One that may not be listed can still be removed, as long as it is empty, and so can what only
/// passed for a directory.
bool TreeRemoval::removeUnlisted(const std::string& path) const
{
    const auto& system = place_.system();
    return place_.isDirectoryItself(path) ? system.directoryRemove(path) : system.fileRemove(path);
}

/// What is in a directory, and not in one that a link in its place leads to.
std::vector<FileSystem::StorageSystemFileInfo> TreeRemoval::entriesOf(const std::string& path)
{
    auto entries = place_.list(path);
    if (!place_.system().directoryExists(path, false)) {
        place_.refuse("cannot remove", path, "it is no directory any more");
    }
    if (path.size() > longestPath) {
        place_.refuse("cannot remove", path, "it is nested too deep");
    }
    return entries;
}

void TreeRemoval::removeNextEntry()
{
    Directory& parent = directories_.back();
    const auto& entry = parent.entries[parent.next++];
    const std::string path = joinPath(parent.path, entry.name);
    if (isEntryName(entry.name) && isToBeEntered(path, entry.type)) {
        enter(path);
        return;
    }
    try {
        if (!isEntryName(entry.name)) {
            place_.refuse("cannot remove an entry of", parent.path,
                          "its name would lead elsewhere: \"" + entry.name + "\"");
        }
        count(place_.system().fileRemove(path), path);
    } catch (const Failure& failure) {
        keep(failure);
    }
}

/// A listing need not tell what its entries are.
bool TreeRemoval::isToBeEntered(
    const std::string& path, Utilities::Flags<FileSystem::StorageSystemFileTypeFlag> listed) const
{
    return listed.isEmpty() ? place_.system().directoryExists(path, false) : isDirectory(listed);
}

void TreeRemoval::leave()
{
    const Directory left = std::move(directories_.back());
    directories_.pop_back();
    if (left.isKept) {
        keepParent();
        return;
    }
    try {
        count(place_.system().directoryRemove(left.path), left.path);
    } catch (const Failure& failure) {
        keep(failure);
    }
}

void TreeRemoval::count(bool isGone, const std::string& path)
{
    if (!isGone) {
        place_.failBecause("cannot remove", path, FileSystem::Failure::last());
    }
    ++removedCount_;
}

void TreeRemoval::keep(const Failure& failure)
{
    note_(failure);
    keepParent();
}

void TreeRemoval::keepParent() noexcept
{
    if (!directories_.empty()) {
        directories_.back().isKept = true;
    }
}

} // namespace TarnisTool
