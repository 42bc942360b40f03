#include "tree/TargetDirectory.h"

#include "path/EntryKind.h"
#include "path/PathText.h"

#include <FileSystem/StorageSystem.h>

#include <utility>

namespace FileSystem {

using Option = StorageSystemCopyOptionFlag;

namespace {

constexpr Utilities::Flags<PosixFilePermissionFlag> allOfTheOwner{0700U};
constexpr Utilities::Flags<PosixFilePermissionFlag> stickyBit{01000U};
constexpr auto writtenByOthers =
    PosixFilePermissionFlag::GroupWrite | PosixFilePermissionFlag::OthersWrite;

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
                                 const TreeDirectory& source)
    : task_(task)
    , path_(std::move(path))
    , sourcePath_(source.path)
    , source_(source.info)
{}

// Exclusively: a link to a directory, which would lead elsewhere, must not pass for a directory.
bool TargetDirectory::make()
{
    const bool isPreserved = task_.options.has(Option::PreservePermissions);
    if (isPreserved) {
        final_ = permissionsToPreserve();
    }
    const auto name = PathText::fileName(path_);
    // The root and "." cannot be made, only be there.
    if (!PathText::isEntryName(name)) {
        return task_.target.directoryExists(path_, false) && closeStanding();
    }
    // If they cannot be set in the end, what others may look into is better off with these, unless
    // they could remove from it what is not theirs.
    const bool isSticky = final_ && *final_ != source_.permissions;
    const bool isPrivate =
        isPreserved && (isSticky || !task_.options.has(Option::PreserveBestEffort));
    const auto permissions = isPrivate ? allOfTheOwner : source_.permissions | allOfTheOwner;
    isNew_ = task_.target.directoryCreate(PathText::parentId(path_), {name}, true, permissions)
                 .has_value();
    if (isNew_) {
        lookAtNew(permissions);
    }
    return isNew_ || (isThere() && closeStanding());
}

/// The sticky bit is not among those that are known of a path. It says something only where others
/// than the owner may write.
TargetDirectory::Permissions TargetDirectory::permissionsToPreserve() const
{
    if ((source_.permissions & writtenByOthers).isEmpty()) {
        return source_.permissions;
    }
    const FailureKeeper keeper;
    const auto source = task_.source.lookWithOwner(sourcePath_);
    const bool isSticky = source && source->isSticky.value_or(false);
    return isSticky ? source_.permissions | stickyBit : source_.permissions;
}

/// Lets a directory keep the sticky bit that it has, and asks none of a system that knows of none.
void TargetDirectory::adjustStickyBit(std::optional<bool> told)
{
    if (!told) {
        final_ = final_->without(stickyBit);
    } else if (*told) {
        final_ = *final_ | stickyBit;
    }
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
bool TargetDirectory::closeStanding()
{
    if (!final_) {
        return true;
    }
    const auto standing = task_.target.lookWithOwner(path_);
    if (!standing) {
        return false;
    }
    adjustStickyBit(standing->isSticky);
    const auto given = standing->info.permissions;
    const auto has = standing->isSticky.value_or(false) ? given | stickyBit : given;
    const auto narrowed = (given & *final_) | allOfTheOwner | (*final_ & stickyBit);
    // Where that is no reason to give up it is told in the end, when the same is tried again.
    return narrowed == has || task_.target.directorySetPermissions(path_, narrowed) ||
           task_.options.has(Option::PreserveBestEffort);
}

/// A umask may have taken from the owner what filling it needs, and a server may give what it
/// likes.
void TargetDirectory::lookAtNew(Permissions permissions)
{
    const auto made = task_.target.lookWithOwner(path_);
    if (!made || !isDirectory(made->info.type)) {
        return;
    }
    if (final_) {
        adjustStickyBit(made->isSticky);
    }
    const auto given = made->info.permissions;
    const auto whileFilled = (given & permissions) | allOfTheOwner;
    // As far as the system has permissions at all.
    const bool isSet =
        whileFilled == given || task_.target.directorySetPermissions(path_, whileFilled);
    const auto inTheEnd = given & source_.permissions;
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
    if (!final_ || task_.target.directorySetPermissions(path_, *final_)) {
        return true;
    }
    if (!(*final_ & stickyBit).isEmpty()) {
        // The system may have given all but that bit, and then anybody could remove what is in it.
        const FailureKeeper keeper;
        static_cast<void>(task_.target.directorySetPermissions(
            path_, final_->without(stickyBit | writtenByOthers)));
    }
    return goesOnWithout(task_, path_, "the permissions");
}

} // namespace FileSystem
