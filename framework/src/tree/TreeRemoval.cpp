#include "tree/TreeRemoval.h"

#include "failure/FailureWatch.h"
#include "path/EntryKind.h"
#include "path/NameCheck.h"
#include "path/PathText.h"
#include "tree/TreeLimits.h"

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
        Failure whyUnread;
        std::size_t next = 0;

        bool isDone() const { return next == entries.size(); }
    };

    /// A list that broke off does no harm: a directory that still holds something is not removed,
    /// and fails then for what the list broke off of.
    bool enter(const std::string& path)
    {
        if (levels_.size() == maximumTreeDepth) {
            return fail(FailureCode::TooDeep, {}, path);
        }
        const FailureWatch watch;
        auto entries = system_.directoryList(path);
        levels_.push_back({path, std::move(entries), watch.noted()});
        // What was listed through a link that has just taken the directory's place is not below it.
        return isStillDirectory(system_, path);
    }

    bool leave()
    {
        auto level = std::move(levels_.back());
        levels_.pop_back();
        if (system_.directoryRemove(level.path)) {
            return true;
        }
        const auto code = Failure::last().code();
        const bool isForWhatIsLeft = code == FailureCode::NotEmpty || code == FailureCode::Other;
        if (level.whyUnread && isForWhatIsLeft) {
            noteAgain(std::move(level.whyUnread));
        }
        return false;
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
