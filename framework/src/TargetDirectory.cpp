#include "TargetDirectory.h"

#include "EntryKind.h"
#include "PathText.h"

#include <FileSystem/StorageSystem.h>

#include <utility>

namespace FileSystem {

using Option = StorageSystemCopyOptionFlag;

namespace {

constexpr Utilities::Flags<PosixFilePermissionFlag> allOfTheOwner{0700U};

// A listing takes at least as many requests.
constexpr std::size_t fewEntries = 4;

} // namespace

StandingEntries::StandingEntries(const StorageSystem& system, const std::string& directory,
                                 std::size_t copied)
    : system_(system)
    , directory_(directory)
{
    auto entries = copied > fewEntries ? system.directoryReadFully(directory) : std::nullopt;
    if (!entries) {
        return;
    }
    isListed_ = true;
    for (auto& entry : *entries) {
        auto name = entry.name;
        entries_.emplace(std::move(name), std::move(entry));
    }
}

std::optional<StorageSystemFileInfo> StandingEntries::find(const std::string& name) const
{
    const auto listed = entries_.find(name);
    const bool isTold = listed != entries_.end();
    // Servers leave such names out of their lists, and have what they do not list all the same.
    const bool isHiddenName = !name.empty() && name.front() == '.';
    if (isListed_ && !isTold && !isHiddenName) {
        return std::nullopt;
    }
    // A listing need not tell what its entries are.
    return isTold && !listed->second.type.isEmpty()
               ? std::make_optional(listed->second)
               : system_.fileInfo(PathText::childId(directory_, {name}));
}

TargetDirectory::TargetDirectory(const CopyTask& task, std::string path,
                                 const StorageSystemFileInfo& source)
    : task_(task)
    , path_(std::move(path))
    , source_(source)
{}

// Exclusively: a link to a directory, which would lead elsewhere, must not pass for a directory.
bool TargetDirectory::make()
{
    const bool isPreserved = task_.options.has(Option::PreservePermissions);
    if (isPreserved) {
        final_ = source_.permissions;
    }
    const auto name = PathText::fileName(path_);
    // The root and "." cannot be made, only be there.
    if (!PathText::isEntryName(name)) {
        return task_.target.directoryExists(path_, false) && closeStanding();
    }
    // If they cannot be set in the end, what others may look into is better off with these.
    const bool isPrivate = isPreserved && !task_.options.has(Option::PreserveBestEffort);
    const auto permissions = isPrivate ? allOfTheOwner : source_.permissions | allOfTheOwner;
    isNew_ = task_.target.directoryCreate(PathText::parentId(path_), {name}, true, permissions)
                 .has_value();
    if (isNew_) {
        lookAtNew(permissions);
    }
    return isNew_ || (isThere() && closeStanding());
}

/// Whether it could not be made because it is there.
bool TargetDirectory::isThere() const
{
    std::optional<Utilities::Flags<StorageSystemFileTypeFlag>> type;
    {
        const FailureKeeper keeper;
        type = task_.target.fileType(path_);
    }
    if (!type) {
        return false;
    }
    return isDirectory(*type) ? isDirectoryItself(task_.target, path_)
                              : fail(FailureCode::NotDirectory, {}, path_);
}

/// Takes away, before the first entry, what a directory that was there has beyond the source's
/// permissions, if it is to have these.
bool TargetDirectory::closeStanding() const
{
    if (!final_) {
        return true;
    }
    const auto standing = task_.target.directoryInfo(path_);
    if (!standing) {
        return false;
    }
    const auto narrowed = (standing->permissions & *final_) | allOfTheOwner;
    // Where that is no reason to give up it is told in the end, when the same is tried again.
    return narrowed == standing->permissions ||
           task_.target.directorySetPermissions(path_, narrowed) ||
           task_.options.has(Option::PreserveBestEffort);
}

/// A umask may have taken from the owner what filling it needs, and a server may give what it
/// likes.
void TargetDirectory::lookAtNew(Permissions permissions)
{
    const auto made = task_.target.directoryInfo(path_);
    if (!made) {
        return;
    }
    const auto whileFilled = (made->permissions & permissions) | allOfTheOwner;
    // As far as the system has permissions at all.
    const bool isSet = whileFilled == made->permissions ||
                       task_.target.directorySetPermissions(path_, whileFilled);
    const auto inTheEnd = made->permissions & source_.permissions;
    if (!final_ && isSet && inTheEnd != whileFilled) {
        final_ = inTheEnd;
    }
}

// The time first: permissions may forbid to set it.
bool TargetDirectory::finish() const
{
    return setTime() && setPermissions();
}

bool TargetDirectory::setTime() const
{
    return !task_.options.has(Option::PreserveModTime) ||
           task_.target.directorySetModTime(path_, source_.modTime) ||
           goesOnWithout(task_, path_, "the modification time");
}

bool TargetDirectory::setPermissions() const
{
    return !final_ || task_.target.directorySetPermissions(path_, *final_) ||
           goesOnWithout(task_, path_, "the permissions");
}

} // namespace FileSystem
