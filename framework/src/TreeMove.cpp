#include "TreeMove.h"

#include "PathText.h"
#include "TreeCopy.h"
#include "TreeRemoval.h"

#include <FileSystem/FileSystem2.h>

#include <algorithm>
#include <optional>

namespace FileSystem {

namespace {

bool removeEntries(const FileSystem2& system, const TreeDirectory& directory)
{
    return std::all_of(directory.entries.begin(), directory.entries.end(),
                       [&system, &directory](const StorageSystemFileInfo& entry) {
                           return system.fileRemove(
                               PathText::childId(directory.path, {entry.name}));
                       });
}

/// Children before their parents. A directory that has got another entry since is not empty then,
/// and stays.
bool removeCopied(const FileSystem2& system, const Tree& tree)
{
    return std::all_of(tree.directories.rbegin(), tree.directories.rend(),
                       [&system](const TreeDirectory& directory) {
                           return removeEntries(system, directory) &&
                                  system.directoryRemove(directory.path);
                       });
}

} // namespace

bool moveTreeByCopy(const FileSystem2& system, const StorageSystemFileInfo& source,
                    const std::string& path, const std::string& newPath)
{
    const StorageSystemProgress unheard;
    CopyProgress progress(unheard);
    const auto options = StorageSystemCopyOptionFlag::Recursive |
                         StorageSystemCopyOptionFlag::FailIfExists |
                         StorageSystemCopyOptionFlag::PreservePermissions |
                         StorageSystemCopyOptionFlag::PreserveModTime;
    const CopyTask task{system, system, options, std::nullopt, progress};
    TreeCopy copy(task, path, newPath);
    if (copy.copy(source)) {
        return removeCopied(system, copy.tree());
    }
    if (copy.hasMadeTarget()) {
        removeTree(system, newPath);
    }
    return false;
}

} // namespace FileSystem
