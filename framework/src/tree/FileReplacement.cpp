#include "tree/FileReplacement.h"

#include "SystemCall.h"
#include "failure/FailureWatch.h"
#include "local/LocalAttributes.h"
#include "path/EntryKind.h"
#include "path/PathText.h"
#include "tree/HiddenName.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/FileSystem2.h>
#include <FileSystem/LocalFileSystem.h>

#include <fcntl.h>

namespace FileSystem {

namespace {

/// Whether a renaming that was reported as failed was done all the same.
bool isRenamed(const StorageSystem& system, const std::string& from, const std::string& to)
{
    const FailureKeeper keeper;
    return !system.fileType(from) && system.fileType(to);
}

bool isLocal(const StorageSystem& system)
{
    return dynamic_cast<const LocalFileSystem*>(&system) != nullptr;
}

/// Whether a system that replaces in one step has told why it does not: any other way would end the
/// same, with the file missing for a moment. A server's plain "failure" tells nothing.
bool isRefusal(const StorageSystem& system, const Failure& failure)
{
    const bool isVague =
        failure.code() == FailureCode::Unsupported || failure.code() == FailureCode::Other;
    return failure && (!isVague || isLocal(system));
}

/// Whether both can be the same file: there is nothing else to tell them apart by.
bool areAlike(const StorageSystemFileInfo& one, const StorageSystemFileInfo& other)
{
    return one.type == other.type && one.size == other.size && one.modTime == other.modTime &&
           one.permissions == other.permissions;
}

bool isSameLocalFile(const std::string& path, const std::string& otherPath)
{
    const auto one = readAttributes(AT_FDCWD, systemPath(path));
    const auto other = readAttributes(AT_FDCWD, systemPath(otherPath));
    return one && other && one->st_dev == other->st_dev && one->st_ino == other->st_ino;
}

/// Whether a file that has just been given a new path still stands at another one, as a second name
/// of it. \param file what was given the path.
bool isOtherName(const StorageSystem& system, const std::string& path,
                 const StorageSystemFileInfo& file, const std::string& newPath)
{
    if (isLocal(system)) {
        return isSameLocalFile(path, newPath);
    }
    const auto now = system.fileInfo(path);
    return now && areAlike(*now, file);
}

} // namespace

bool FileReplacement::rename(const StorageSystem& system, const std::string& from,
                             const std::string& to)
{
    const auto* const byPath = dynamic_cast<const FileSystem2*>(&system);
    if (byPath != nullptr) {
        return byPath->fileRenameAs(from, to);
    }
    return system.fileRename(from, PathText::fileName(to)).has_value();
}

bool FileReplacement::replace(const StorageSystem& system, const std::string& path,
                              const std::string& newPath)
{
    const FailureWatch watch;
    return replaceAtOnce(system, path, newPath) ||
           (!isRefusal(system, watch.noted()) && replaceAfterLooking(system, path, newPath));
}

// Systems that rename one name of a file onto another of the same file do nothing, and say that
// they did it. What stands at the old path then may also be another writer's next file, of the same
// size and from the same second: it is left alone unless the file was at both paths before.
bool FileReplacement::replaceByAny(const StorageSystem& system, const std::string& path,
                                   const StorageSystemFileInfo& file, const std::string& newPath,
                                   const std::optional<StorageSystemFileInfo>& replaced)
{
    if (!replace(system, path, newPath)) {
        return false;
    }
    const bool mayHaveBeenBoth = replaced && (isLocal(system) || areAlike(*replaced, file));
    return !mayHaveBeenBoth || !isOtherName(system, path, file, newPath) ||
           removeOtherName(system, path, file, newPath);
}

bool FileReplacement::replaceAtOnce(const StorageSystem& system, const std::string& path,
                                    const std::string& newPath)
{
    return system.replacer_ && system.replacer_(path, newPath);
}

// Some servers replace whatever stands there, a directory with all below it as well.
bool FileReplacement::replaceAfterLooking(const StorageSystem& system, const std::string& path,
                                          const std::string& newPath)
{
    const auto type = system.fileType(newPath);
    if (!type) {
        return rename(system, path, newPath);
    }
    return isReplaceable(system, newPath, *type) &&
           (rename(system, path, newPath) || replaceInSteps(system, path, newPath));
}

// Many servers refuse to rename onto something. A file from another directory comes near first: one
// that may not leave its place, or is on another volume, never makes what it is to replace vanish.
bool FileReplacement::replaceInSteps(const StorageSystem& system, const std::string& path,
                                     const std::string& newPath)
{
    if (PathText::parentId(path) == PathText::parentId(newPath)) {
        return takePlace(system, path, newPath);
    }
    const auto near = hiddenPath(newPath, HiddenNameUse::Unfinished);
    if (!rename(system, path, near) && !isRenamed(system, path, near)) {
        return false;
    }
    if (takePlace(system, near, newPath)) {
        return true;
    }
    const FailureKeeper keeper;
    rename(system, near, path);
    return false;
}

// What stands there is set aside and not removed first: nothing is lost on a server that refuses to
// rename at all.
bool FileReplacement::takePlace(const StorageSystem& system, const std::string& path,
                                const std::string& newPath)
{
    const auto aside = hiddenPath(newPath, HiddenNameUse::SetAside);
    if (!system.fileRename(newPath, PathText::fileName(aside)) &&
        !isRenamed(system, newPath, aside)) {
        return false;
    }
    const FailureWatch watch;
    if (rename(system, path, newPath) || isRenamed(system, path, newPath)) {
        static_cast<void>(system.fileRemove(aside));
        return true;
    }
    const auto why = watch.noted();
    if (!bringBack(system, aside, newPath)) {
        const auto said = why.text().empty() ? "" : why.text() + "; ";
        return fail(why.code(), why.source(), why.number(),
                    said + "what stood there is at " + aside, why.entry());
    }
    return false;
}

/// False: what was set aside is still there, as far as the system tells.
bool FileReplacement::bringBack(const StorageSystem& system, const std::string& aside,
                                const std::string& path)
{
    const FailureKeeper keeper;
    // On a server that replaces it would be in the place of whatever came there meanwhile.
    return !system.fileType(path) &&
           (rename(system, aside, path) || isRenamed(system, aside, path));
}

// The two paths may also be two ways to one name, through a link above it or in another case. So
// the old one is set aside, and removed once it is seen that the new one is still there.
bool FileReplacement::removeOtherName(const StorageSystem& system, const std::string& path,
                                      const StorageSystemFileInfo& file, const std::string& newPath)
{
    const auto aside = hiddenPath(path, HiddenNameUse::SetAside);
    if (!rename(system, path, aside)) {
        return false;
    }
    if (!system.fileType(newPath)) {
        return rename(system, aside, newPath);
    }
    if (!isOtherName(system, aside, file, newPath)) {
        // Another writer was in between.
        return rename(system, aside, path);
    }
    if (system.fileRemove(aside)) {
        return true;
    }
    const FailureKeeper keeper;
    rename(system, aside, path);
    return false;
}

} // namespace FileSystem
