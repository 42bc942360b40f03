#include "tree/TreeScan.h"

#include "path/EntryKind.h"
#include "path/NameCheck.h"
#include "path/PathText.h"
#include "tree/TreeLimits.h"

#include <FileSystem/StorageSystem.h>

#include <utility>

namespace FileSystem {

namespace {

class TreeScan
{
public:
    explicit TreeScan(const CopyTask& task)
        : task_(task)
    {}

    bool scan(const std::string& path, const StorageSystemFileInfo& info)
    {
        tree_.directories.push_back({path, 0, 0, info, {}});
        // Grows while it is walked.
        for (std::size_t index = 0; index < tree_.directories.size(); ++index) {
            if (!scanDirectory(index) || !task_.progress.report()) {
                return false;
            }
        }
        return true;
    }

    Tree takeTree() { return std::move(tree_); }

private:
    bool scanDirectory(std::size_t index)
    {
        const auto path = tree_.directories[index].path;
        auto entries = task_.source.directoryReadFully(path);
        if (!entries) {
            return failToRead(path);
        }
        for (auto& entry : *entries) {
            if (!isNameBelow(path, entry.name) || !add(index, path, std::move(entry))) {
                return false;
            }
        }
        // What was read through a link that has just taken the directory's place is not the tree's.
        return isStillDirectory(task_.source, path);
    }

    bool failToRead(const std::string& path) const
    {
        bool isDirectory = true;
        {
            const FailureKeeper keeper;
            isDirectory = isDirectoryItself(task_.source, path);
        }
        return !isDirectory && fail(FailureCode::NotCopyable, {}, path);
    }

    bool add(std::size_t index, const std::string& directory, StorageSystemFileInfo entry)
    {
        auto path = PathText::childId(directory, {entry.name});
        if (entry.type.isEmpty() && !askAgain(path, entry)) {
            return false;
        }
        if (isDirectory(entry.type)) {
            return addDirectory(index, std::move(path), std::move(entry));
        }
        if (!isFileOrLink(task_.source, path, entry.type)) {
            return false;
        }
        if (isRegularFile(entry.type)) {
            task_.progress.addTotal(entry.size);
        } else if (tree_.firstLink.empty()) {
            tree_.firstLink = std::move(path);
        }
        tree_.directories[index].entries.push_back(withoutPath(std::move(entry)));
        return true;
    }

    /// For an entry that came without its type. False: it is gone.
    bool askAgain(const std::string& path, StorageSystemFileInfo& entry) const
    {
        auto info = task_.source.fileInfo(path);
        if (!info) {
            return false;
        }
        info->name = entry.name;
        entry = *std::move(info);
        return true;
    }

    bool addDirectory(std::size_t parent, std::string path, StorageSystemFileInfo entry)
    {
        const auto depth = tree_.directories[parent].depth + 1;
        if (depth >= maximumTreeDepth) {
            return fail(FailureCode::TooDeep, {}, std::move(path));
        }
        tree_.directories.push_back(
            {std::move(path), parent, depth, withoutPath(std::move(entry)), {}});
        return true;
    }

    /// A tree may have very many entries, and what they share need not be kept with each.
    static StorageSystemFileInfo withoutPath(StorageSystemFileInfo entry)
    {
        entry.fileId = std::string();
        entry.parentDirectoryId = std::string();
        return entry;
    }

    const CopyTask& task_;
    Tree tree_;
};

} // namespace

std::optional<Tree> scanTree(const CopyTask& task, const std::string& path,
                             const StorageSystemFileInfo& info)
{
    TreeScan scan(task);
    return scan.scan(path, info) ? std::make_optional(scan.takeTree()) : std::nullopt;
}

} // namespace FileSystem
