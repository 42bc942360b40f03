#include "files/TreeWalk.h"

#include "Failure.h"
#include "files/EntryNames.h"
#include "terminal/Messages.h"

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
        const std::string directory = std::move(waiting.back());
        waiting.pop_back();
        const std::size_t before = entries.size();
        try {
            listInto(entries, root, directory);
        } catch (const Failure& failure) {
            place_.requireAlive();
            leaveOut(failure.what());
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
                        const std::string& directory)
{
    const std::string path = directory.empty() ? root : joinPath(root, directory);
    for (auto& info : place_.list(path)) {
        std::string below = joinPath(directory, info.name);
        if (!isEntryName(info.name)) {
            leaveOut("left out an entry of " + place_.display(path) +
                     ": its name would lead elsewhere: \"" + info.name + "\"");
        } else if (below.size() > longestPath) {
            leaveOut("left out what is below " + place_.display(path) + ": it is nested too deep");
        } else {
            entries.push_back({std::move(below), std::move(info)});
        }
    }
}

void TreeWalk::leaveOut(const std::string& why)
{
    isIncomplete_ = true;
    report(why);
}

} // namespace TarnisTool
