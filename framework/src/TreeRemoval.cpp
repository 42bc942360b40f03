#include "TreeRemoval.h"

#include "EntryKind.h"
#include "NameCheck.h"
#include "PathText.h"
#include "TreeLimits.h"

#include <FileSystem/FileSystem2.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace FileSystem {

namespace {

/// A walk that keeps its own stack: how deep a tree goes is for a server to say.
class TreeRemoval
{
public:
    explicit TreeRemoval(const FileSystem2& system)
        : system_(system)
    {}

    bool remove(const std::string& path)
    {
        enter(path);
        while (!levels_.empty()) {
            if (!(levels_.back().isDone() ? leave() : removeNextEntry())) {
                return false;
            }
        }
        return true;
    }

private:
    struct Level
    {
        std::string path;
        std::vector<StorageSystemDirectoryInfo> entries;
        std::size_t next = 0;

        bool isDone() const { return next == entries.size(); }
    };

    /// A list that broke off does no harm: a directory that still holds something is not removed.
    bool enter(const std::string& path)
    {
        if (levels_.size() == maximumTreeDepth) {
            return fail(FailureCode::TooDeep, {}, path);
        }
        levels_.push_back({path, system_.directoryList(path)});
        // What was listed through a link that has just taken the directory's place is not below it.
        return isStillDirectory(system_, path);
    }

    bool leave()
    {
        const auto path = std::move(levels_.back().path);
        levels_.pop_back();
        return system_.directoryRemove(path);
    }

    bool removeNextEntry()
    {
        auto& level = levels_.back();
        const auto& entry = level.entries[level.next++];
        if (!isNameBelow(level.path, entry.name)) {
            return false;
        }
        const auto path = PathText::childId(level.path, {entry.name});
        return isToBeEntered(path, entry.type) ? enter(path) : system_.fileRemove(path);
    }

    /// A listing may not tell the type, or may be out of date by now. Before the walk goes down the
    /// system itself is asked.
    bool isToBeEntered(const std::string& path,
                       Utilities::Flags<StorageSystemFileTypeFlag> listed) const
    {
        return (listed.isEmpty() || isDirectory(listed)) && system_.directoryExists(path, false);
    }

    const FileSystem2& system_;
    std::vector<Level> levels_;
};

} // namespace

bool removeTree(const FileSystem2& system, const std::string& path)
{
    // With a slash behind it a link would be taken for the directory that it leads to.
    const auto directory = PathText::removeTrailingSlash(path);
    return isName(PathText::fileName(directory)) && system.directoryExists(directory, false) &&
           TreeRemoval(system).remove(directory);
}

} // namespace FileSystem
