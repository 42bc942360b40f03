#include "tree/TreeCopy.h"

#include "path/EntryKind.h"
#include "path/LinkResolution.h"
#include "path/PathText.h"
#include "tree/FileCopy.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystem.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace FileSystem {

using Option = StorageSystemCopyOptionFlag;

TreeCopy::TreeCopy(const CopyTask& task, const std::string& sourcePath,
                   const std::string& targetPath)
    : task_(task)
    , sourcePath_(PathText::removeTrailingSlash(sourcePath))
    , targetPath_(PathText::removeTrailingSlash(targetPath))
{}

bool TreeCopy::copy(const StorageSystemFileInfo& source)
{
    if (leadsIntoItself()) {
        return fail(FailureCode::IntoItself, {}, targetPath_);
    }
    if (!task_.progress.report()) {
        return false;
    }
    auto tree = scanTree(task_, sourcePath_, source);
    if (!tree) {
        return false;
    }
    tree_ = *std::move(tree);
    return canHaveLinks() && makeRoot() && copyDirectories() && finishDirectories() &&
           task_.progress.report();
}

bool TreeCopy::canHaveLinks() const
{
    return tree_.firstLink.empty() || task_.target.hasSymbolicLinks() ||
           fail(FailureCode::Unsupported, noLinksThere, tree_.firstLink);
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
    auto& root = targets_.emplace_back(task_, targetPath_, tree_.directories.front());
    return root.make() && (root.isNew() || !task_.options.has(Option::FailIfExists) ||
                           fail(FailureCode::Exists, {}, targetPath_));
}

bool TreeCopy::copyDirectories()
{
    for (std::size_t index = 0; index < tree_.directories.size(); ++index) {
        const auto& directory = tree_.directories[index];
        if (index > 0) {
            const auto& parent = targets_[directory.parent];
            auto& target = targets_.emplace_back(
                task_, PathText::childId(parent.path(), {directory.info.name}), directory);
            if (!target.make()) {
                return false;
            }
        }
        if (!copyEntries(directory, targets_[index])) {
            return false;
        }
    }
    return true;
}

bool TreeCopy::copyEntries(const TreeDirectory& directory, const TargetDirectory& target) const
{
    const StandingEntries standing(task_.target, target.path(),
                                   target.isNew() ? 0 : directory.entries.size());
    const bool areCopied = std::all_of(
        directory.entries.begin(), directory.entries.end(),
        [&](const StorageSystemFileInfo& entry) {
            return FileCopy(task_, entry, PathText::childId(directory.path, {entry.name}),
                            target.path(), entry.name,
                            target.isNew() ? std::nullopt : standing.find(entry.name))
                .copy();
        });
    // What came through a link that has taken the directory's place is not the tree's.
    return areCopied &&
           (directory.entries.empty() || isStillDirectory(task_.source, directory.path));
}

// When everything is in place: what is put into a directory changes its time, and takes permissions
// that it may not be meant to keep. The deepest first, before the way to it closes.
bool TreeCopy::finishDirectories() const
{
    return std::all_of(targets_.rbegin(), targets_.rend(),
                       [](const TargetDirectory& target) { return target.finish(); });
}

} // namespace FileSystem
