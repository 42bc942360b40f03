#include "TreeCopy.h"

#include "FileCopy.h"
#include "LinkResolution.h"
#include "PathText.h"

#include <FileSystem/StorageSystem.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace FileSystem {

using Option = StorageSystemCopyOptionFlag;

namespace {

/// Where a path leads, without links on the way, so that two can be compared. Empty: it cannot be
/// told, as for a path above the directory of relative ones, or that directory itself, in a system
/// that does not know its place.
std::optional<std::string> placeOf(const StorageSystem& system, const std::string& path)
{
    auto place = resolveLinks(system, system.absolutePath(path).value_or(path));
    const bool isKnown =
        place && !place->empty() && *place != "." && !PathText::isWithin("..", *place);
    return isKnown ? place : std::nullopt;
}

} // namespace

TreeCopy::TreeCopy(const CopyTask& task, const std::string& sourcePath,
                   const std::string& targetPath)
    : task_(task)
    , sourcePath_(PathText::removeTrailingSlash(sourcePath))
    , targetPath_(PathText::removeTrailingSlash(targetPath))
{}

bool TreeCopy::copy(const StorageSystemFileInfo& source)
{
    if (leadsIntoItself() || !task_.progress.report()) {
        return false;
    }
    auto tree = scanTree(task_, sourcePath_, source);
    if (!tree || (tree->hasLinks && !task_.target.hasSymbolicLinks())) {
        return false;
    }
    tree_ = *std::move(tree);
    return makeRoot() && copyDirectories() && setAttributes() && task_.progress.report();
}

bool TreeCopy::leadsIntoItself() const
{
    // This machine has one tree, whichever object it is reached through.
    const bool isOneSystem =
        &task_.source == &task_.target || (task_.source.getType() == StorageSystemType::Local &&
                                           task_.target.getType() == StorageSystemType::Local);
    if (!isOneSystem) {
        return false;
    }
    const auto source = placeOf(task_.source, sourcePath_);
    const auto target = placeOf(task_.target, targetPath_);
    if (!source || !target || PathText::isAbsolute(*source) != PathText::isAbsolute(*target)) {
        return true;
    }
    return PathText::isWithin(*source, *target);
}

bool TreeCopy::makeRoot()
{
    const bool mayExist = !task_.options.has(Option::FailIfExists);
    // The root and "." cannot be made, only be there.
    const bool isMade = PathText::isEntryName(PathText::fileName(targetPath_))
                            ? makeDirectory(targetPath_, madeTarget_)
                            : task_.target.directoryExists(targetPath_, false);
    targets_.push_back(targetPath_);
    return isMade && (madeTarget_ || mayExist);
}

// Exclusively: a link to a directory, which would lead elsewhere, must not pass for a directory.
bool TreeCopy::makeDirectory(const std::string& path, bool& made) const
{
    constexpr Utilities::Flags<PosixFilePermissionFlag> ownerOnly(0700U);
    const auto permissions =
        task_.options.has(Option::PreservePermissions) ? ownerOnly : defaultDirectoryPermissions;
    made = task_.target
               .directoryCreate(PathText::parentId(path), {PathText::fileName(path)}, true,
                                permissions)
               .has_value();
    return made || task_.target.directoryExists(path, false);
}

bool TreeCopy::copyDirectories()
{
    for (std::size_t index = 0; index < tree_.directories.size(); ++index) {
        const auto& directory = tree_.directories[index];
        if (index > 0) {
            bool made = false;
            targets_.push_back(
                PathText::childId(targets_[directory.parent], {directory.info.name}));
            if (!makeDirectory(targets_.back(), made)) {
                return false;
            }
        }
        if (!copyEntries(directory, targets_[index])) {
            return false;
        }
    }
    return true;
}

bool TreeCopy::copyEntries(const TreeDirectory& directory, const std::string& targetPath) const
{
    const bool areCopied = std::all_of(
        directory.entries.begin(), directory.entries.end(),
        [&](const StorageSystemFileInfo& entry) {
            const FileCopy copy(task_, entry, PathText::childId(directory.path, {entry.name}),
                                targetPath, entry.name);
            return isSymbolicLink(entry.type) ? copy.copyLink() : copy.copyFile();
        });
    // What came through a link that has taken the directory's place is not the tree's.
    return areCopied &&
           (directory.entries.empty() || task_.source.directoryExists(directory.path, false));
}

// When everything is in place: what is put into a directory changes its time, and takes permissions
// that it may not be meant to keep. The deepest first, before the way to it closes.
bool TreeCopy::setAttributes() const
{
    for (auto index = targets_.size(); index-- > 0;) {
        const auto& info = tree_.directories[index].info;
        const auto& path = targets_[index];
        if ((task_.options.has(Option::PreserveModTime) &&
             !task_.target.directorySetModTime(path, info.modTime)) ||
            (task_.options.has(Option::PreservePermissions) &&
             !task_.target.directorySetPermissions(path, info.permissions))) {
            return false;
        }
    }
    return true;
}

} // namespace FileSystem
