#include "files/TreeWalk.h"

#include "Failure.h"
#include "files/EntryNames.h"
#include "terminal/Messages.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace TarnisTool {

TreeWalk::TreeWalk(Place& place, const Cancellation& cancellation)
    : place_(place)
    , cancellation_(cancellation)
{}

std::vector<TreeEntry> TreeWalk::entriesBelow(const std::string& root)
{
    std::vector<TreeEntry> entries;
    std::vector<std::string> waiting{""};
    while (!waiting.empty() && !cancellation_.isRequested()) {
        const std::string below = std::move(waiting.back());
        waiting.pop_back();
        const std::size_t before = entries.size();
        try {
            listInto(entries, root, below);
        } catch (const Failure& failure) {
            place_.requireAlive();
            const std::string path = joinPath(root, below);
            if (!below.empty() && place_.system().directoryExists(path, false) &&
                !place_.isDirectoryItself(path)) {
                leaveOutOther(entries, root, below);
            } else {
                leaveOut(failure.what());
            }
        }
        // The next one stands last.
        for (std::size_t i = entries.size(); i-- > before;) {
            if (isDirectory(entries[i].info.type)) {
                waiting.push_back(entries[i].path);
            }
        }
    }
    return entries;
}

void TreeWalk::listInto(std::vector<TreeEntry>& entries, const std::string& root,
                        const std::string& parent)
{
    const std::string path = parent.empty() ? root : joinPath(root, parent);
    const std::size_t before = entries.size();
    for (auto& info : place_.list(path)) {
        std::string below = joinPath(parent, info.name);
        if (!isEntryName(info.name)) {
            leaveOut("left out an entry of " + place_.display(path) +
                     ": its name would lead elsewhere: \"" + info.name + "\"");
        } else if (below.size() > longestPath) {
            leaveOut("left out what is below " + place_.display(path) + ": it is nested too deep");
        } else {
            const std::string entryPath = joinPath(path, info.name);
            addEntry(entries, entryPath, {std::move(below), std::move(info)});
        }
    }
    // What was read through a link that has just taken the parent's place is not the tree's.
    if (!place_.system().directoryExists(path, false)) {
        entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(before), entries.end());
        place_.refuse("cannot copy", path, "it is no directory any more");
    }
}

/// A listing need not tell what its entries are.
void TreeWalk::addEntry(std::vector<TreeEntry>& entries, const std::string& path, TreeEntry entry)
{
    try {
        if (entry.info.type.isEmpty()) {
            entry.info = place_.find(path);
        }
        entries.push_back(std::move(entry));
    } catch (const Failure& failure) {
        place_.requireAlive();
        leaveOut(failure.what());
    }
}

/// What passed for a directory and is none.
void TreeWalk::leaveOutOther(std::vector<TreeEntry>& entries, const std::string& root,
                             const std::string& path)
{
    entries.erase(std::find_if(entries.begin(), entries.end(),
                               [&](const TreeEntry& entry) { return entry.path == path; }));
    leaveOut("left out " + place_.display(joinPath(root, path)) +
             ": it is no file, directory or link");
}

void TreeWalk::leaveOut(const std::string& why)
{
    isIncomplete_ = true;
    report(why);
}

} // namespace TarnisTool
