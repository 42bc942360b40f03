#include "tree/MoveByCopy.h"

#include "path/PathText.h"
#include "tree/HiddenName.h"
#include "tree/TreeCopy.h"
#include "tree/TreeRemoval.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/FileSystem2.h>

#include <algorithm>
#include <optional>

namespace FileSystem {

namespace {

constexpr auto keepAll = StorageSystemCopyOptionFlag::FailIfExists |
                         StorageSystemCopyOptionFlag::PreservePermissions |
                         StorageSystemCopyOptionFlag::PreserveModTime;

/// Whether what stands at the path is still what was copied.
bool isUnchanged(const FileSystem2& system, const std::string& path,
                 const StorageSystemFileInfo& copied)
{
    const auto info = system.fileInfo(path);
    return info && ((info->type == copied.type && info->size == copied.size &&
                     info->modTime == copied.modTime) ||
                    fail(FailureCode::Changed, {}, path));
}

bool removeEntries(const FileSystem2& system, const std::string& directory,
                   const std::vector<StorageSystemFileInfo>& entries)
{
    return std::all_of(entries.begin(), entries.end(), [&](const StorageSystemFileInfo& entry) {
        const auto path = PathText::childId(directory, {entry.name});
        return isUnchanged(system, path, entry) && system.fileRemove(path);
    });
}

/// Removes a tree that was copied from another place. Children before their parents. A directory
/// that has got another entry since is not empty then, and stays.
bool removeCopied(const FileSystem2& system, const Tree& tree, const std::string& place)
{
    const auto root = tree.directories.front().path.size();
    return std::all_of(
        tree.directories.rbegin(), tree.directories.rend(), [&](const TreeDirectory& directory) {
            const auto path = place + directory.path.substr(root);
            return removeEntries(system, path, directory.entries) && system.directoryRemove(path);
        });
}

} // namespace

bool moveFileByCopy(const FileSystem2& system, const std::string& path, const std::string& newPath)
{
    const auto source = system.fileInfo(path);
    if (!source || !system.fileCopyAs(path, system, newPath, {}, keepAll)) {
        return false;
    }
    if (isUnchanged(system, path, *source) && system.fileRemove(path)) {
        return true;
    }
    const FailureKeeper keeper;
    // A removal that was reported as failed may have been done, and then the copy is all there is.
    if (system.fileType(path)) {
        static_cast<void>(system.fileRemove(newPath));
        return false;
    }
    return system.fileType(newPath).has_value();
}

bool moveTreeByCopy(const FileSystem2& system, const std::string& path, const std::string& newPath)
{
    const auto source = system.directoryInfo(path);
    if (!source) {
        return false;
    }
    const StorageSystemProgress unheard;
    CopyProgress progress(unheard);
    CopyLosses losses;
    TargetHabits habits;
    const CopyTask task{system,       system,   keepAll | StorageSystemCopyOptionFlag::Recursive,
                        std::nullopt, progress, losses,
                        habits};
    TreeCopy copy(task, path, newPath);
    // The original leaves its place in one step, which also tells whether it may.
    const auto aside = copy.copy(*source)
                           ? system.directoryRename(path, hiddenName(PathText::fileName(path),
                                                                     HiddenNameUse::SetAside))
                           : std::nullopt;
    if (!aside) {
        const FailureKeeper keeper;
        if (copy.hasMadeTarget()) {
            removeTree(system, newPath);
        }
        return false;
    }
    if (removeCopied(system, copy.tree(), *aside)) {
        return true;
    }
    const FailureKeeper keeper;
    static_cast<void>(system.directoryRenameAs(*aside, path));
    return false;
}

} // namespace FileSystem
