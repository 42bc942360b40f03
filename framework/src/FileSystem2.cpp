#include "failure/FailureWatch.h"
#include "path/EntryKind.h"
#include "path/LinkResolution.h"
#include "path/NameCheck.h"
#include "path/PathText.h"
#include "tree/SlotCopy.h"
#include "tree/SlotMove.h"
#include "tree/SlotRemoval.h"
#include "tree/SlotReplacement.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/FileSystem2.h>

#include <algorithm>
#include <utility>

namespace FileSystem {

using CopyOption = StorageSystemCopyOptionFlag;

namespace {

constexpr std::uint64_t recommendedBufferSize = 1U << 20U;

/// What stands at the path itself: with a slash behind it a link would be taken for the directory
/// that it leads to.
std::optional<StorageSystemFileInfo> infoOfItself(const FileSystem2& system,
                                                  const std::string& path)
{
    auto info = system.fileInfo(path);
    const auto place = PathText::removeTrailingSlash(path);
    if (!info || !isDirectory(info->type) || place == path) {
        return info;
    }
    const auto own = system.fileInfo(place);
    return own && isDirectory(own->type) ? info : own;
}

/// Of a directory on the way to the one that is wanted: its owner can go on from there.
Utilities::Flags<PosixFilePermissionFlag>
passable(Utilities::Flags<PosixFilePermissionFlag> permissions)
{
    return permissions | PosixFilePermissionFlag::OwnerWrite |
           PosixFilePermissionFlag::OwnerExecute;
}

} // namespace

FileSystem2::FileSystem2() = default;

std::optional<std::string> FileSystem2::linkPlace(const std::string& target,
                                                  const std::string& linkPath)
{
    auto place = PathText::removeTrailingSlash(linkPath);
    const bool isPossible =
        namesEntry(target) && isPath(place) && isName(PathText::fileName(place));
    return isPossible ? std::make_optional(std::move(place)) : std::nullopt;
}

FileSystem2::~FileSystem2() = default;

std::string FileSystem2::pathCanonize(const std::string& path) const
{
    return do_pathCanonize(path);
}

std::string FileSystem2::pathFileName(const std::string& path) const
{
    return do_pathFileName(path);
}

bool FileSystem2::pathHasFilterPath(const std::string& path) const
{
    return do_pathHasFilterPath(path);
}

bool FileSystem2::pathIsAbsolute(const std::string& path) const
{
    return do_pathIsAbsolute(path);
}

std::string FileSystem2::pathFileExtension(const std::string& path, bool complete) const
{
    return do_pathFileExtension(path, complete);
}

std::string FileSystem2::pathFileStripExtension(const std::string& path) const
{
    return do_pathFileStripExtension(path);
}

std::string FileSystem2::pathParentId(const std::string& path) const
{
    return do_pathParentId(path);
}

std::string FileSystem2::pathChildId(const std::string& path,
                                     const std::vector<std::string>& names) const
{
    return do_pathChildId(path, names);
}

std::string FileSystem2::pathEnsureLeadingSlash(const std::string& path) const
{
    return do_pathEnsureLeadingSlash(path);
}

std::string FileSystem2::pathRemoveLeadingSlash(const std::string& path) const
{
    return do_pathRemoveLeadingSlash(path);
}

std::string FileSystem2::pathEnsureTrailingSlash(const std::string& path) const
{
    return do_pathEnsureTrailingSlash(path);
}

std::string FileSystem2::pathRemoveTrailingSlash(const std::string& path) const
{
    return do_pathRemoveTrailingSlash(path);
}

std::unique_ptr<StorageSystemFile>
FileSystem2::fileCreateAs(const std::string& path, bool failIfExists, bool makePath,
                          Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    FailureScope scope("fileCreateAs", path);
    return scope.result(namesEntry(path)
                            ? own(do_fileCreateAs(path, failIfExists, makePath, permissions))
                            : nullptr);
}

bool FileSystem2::fileRenameAs(const std::string& path, const std::string& newPath) const
{
    FailureScope scope("fileRenameAs", path, newPath);
    return scope.result(namesEntry(path) && namesEntry(newPath) && renameTo(path, newPath));
}

bool FileSystem2::fileReplaceAs(const std::string& path, const std::string& newPath) const
{
    FailureScope scope("fileReplaceAs", path, newPath);
    if (!namesEntry(newPath)) {
        return scope.result(false);
    }
    const auto source = fileInfo(path);
    if (!source || !isFileOrLink(*this, path, source->type)) {
        return scope.result(false);
    }
    const auto target = fileInfo(newPath);
    if (target && !isReplaceable(*this, newPath, target->type)) {
        return scope.result(false);
    }
    return scope.result(pathCanonize(path) == pathCanonize(newPath) ||
                        replaceForSlot(*this, path, *source, newPath, target));
}

bool FileSystem2::fileMoveAs(const std::string& path, const std::string& newPath) const
{
    FailureScope scope("fileMoveAs", path, newPath);
    return scope.result(namesEntry(path) && namesEntry(newPath) && do_fileMoveAs(path, newPath));
}

bool FileSystem2::fileCopyAs(const std::string& path, const StorageSystem& target,
                             const std::string& targetPath, const StorageSystemProgress& progress,
                             Utilities::Flags<StorageSystemCopyOptionFlag> options,
                             std::optional<std::uint64_t> bufferSize) const
{
    FailureScope scope("fileCopyAs", path, targetPath);
    return scope.result(namesEntry(path) && namesEntry(targetPath) &&
                        do_fileCopyAs(path, target, targetPath, progress, options, bufferSize));
}

std::optional<FileMetaData> FileSystem2::fileMetaData(const std::string& path) const
{
    FailureScope scope("fileMetaData", path);
    return scope.result(namesEntry(path) ? do_fileMetaData(path) : std::nullopt);
}

bool FileSystem2::fileSymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                           bool failIfLinkExists) const
{
    FailureScope scope("fileSymbolicLinkCreateAs", linkPath, target);
    return scope.result(isPath(target) && namesEntry(linkPath) &&
                        do_fileSymbolicLinkCreateAs(target, linkPath, failIfLinkExists));
}

bool FileSystem2::directoryCreateAs(const std::string& path, bool exclusive,
                                    Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    FailureScope scope("directoryCreateAs", path);
    return scope.result(namesEntry(path) && do_directoryCreateAs(path, exclusive, permissions));
}

bool FileSystem2::directoryMakePath(const std::string& path, bool exclusive,
                                    Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    FailureScope scope("directoryMakePath", path);
    return scope.result(namesEntry(path) && do_directoryMakePath(path, exclusive, permissions));
}

bool FileSystem2::directoryRemove(const std::string& path) const
{
    FailureScope scope("directoryRemove", path);
    return scope.result(namesEntry(path) && do_directoryRemove(path));
}

bool FileSystem2::directoryRenameAs(const std::string& path, const std::string& newPath) const
{
    FailureScope scope("directoryRenameAs", path, newPath);
    return scope.result(namesEntry(path) && namesEntry(newPath) &&
                        do_directoryRenameAs(path, newPath));
}

bool FileSystem2::directoryMoveAs(const std::string& path, const std::string& newPath) const
{
    FailureScope scope("directoryMoveAs", path, newPath);
    return scope.result(namesEntry(path) && namesEntry(newPath) &&
                        do_directoryMoveAs(path, newPath));
}

std::vector<std::string>
FileSystem2::directoryListFileNamesWithFilterPath(const std::string& path) const
{
    FailureScope scope("directoryListFileNamesWithFilterPath", path);
    return scope.asNoted(isPath(path) ? do_directoryListFileNamesWithFilterPath(path)
                                      : std::vector<std::string>());
}

bool FileSystem2::directorySymbolicLinkCreateAs(const std::string& target,
                                                const std::string& linkPath,
                                                bool failIfLinkExists) const
{
    FailureScope scope("directorySymbolicLinkCreateAs", linkPath, target);
    return scope.result(isPath(target) && namesEntry(linkPath) &&
                        do_directorySymbolicLinkCreateAs(target, linkPath, failIfLinkExists));
}

/// Says why where nothing is there, or a directory.
bool FileSystem2::existsAsFile(const std::string& path) const
{
    if (do_fileExists(path)) {
        return true;
    }
    return do_fileType(path) && fail(FailureCode::IsDirectory, {}, path);
}

/// Says so where something is there.
bool FileSystem2::isFree(const std::string& path) const
{
    return !do_fileType(path) || fail(FailureCode::Exists, {}, path);
}

/// Renames. Where something stands at the new path, it is there that the failure is.
bool FileSystem2::renameTo(const std::string& path, const std::string& newPath) const
{
    const FailureWatch watch;
    if (do_fileRenameAs(path, newPath)) {
        return true;
    }
    const auto refusal = watch.noted();
    if (refusal.code() == FailureCode::Exists) {
        fail(refusal.code(), refusal.source(), refusal.number(), refusal.text(), newPath);
    }
    return false;
}

/// Makes a directory on the way, or finds one there: another may have made it in the meantime.
bool FileSystem2::makeDirectory(const std::string& path, bool mustBeNew,
                                Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    return directoryCreateAs(path, mustBeNew, permissions) ||
           (!mustBeNew && isDirectoryAfterAll(path));
}

/// Says so where something else is there; otherwise it was said before why there is none.
bool FileSystem2::isDirectoryAfterAll(const std::string& path) const
{
    bool isOther = false;
    {
        const FailureKeeper keeper;
        const FailureWatch watch;
        if (do_directoryExists(path)) {
            return true;
        }
        isOther = watch.noted().code() == FailureCode::NotDirectory;
    }
    if (isOther) {
        fail(FailureCode::NotDirectory, {}, path);
    }
    return false;
}

bool FileSystem2::do_isReadable() const
{
    return isValid();
}

bool FileSystem2::do_isWriteable() const
{
    return isValid();
}

bool FileSystem2::do_hasSymbolicLinks() const
{
    return true;
}

std::uint64_t FileSystem2::do_recommendedReadBufferSize() const
{
    return recommendedBufferSize;
}

std::uint64_t FileSystem2::do_recommendedWriteBufferSize() const
{
    return recommendedBufferSize;
}

std::string FileSystem2::do_canonizeFileId(const std::string& path) const
{
    return pathCanonize(path);
}

std::unique_ptr<StorageSystemFile>
FileSystem2::do_fileCreate(const std::string& directoryPath, const std::string& name,
                           bool failIfExists, bool makePath,
                           Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    if (!isName(name)) {
        return nullptr;
    }
    return fileCreateAs(pathChildId(directoryPath, {name}), failIfExists, makePath, permissions);
}

bool FileSystem2::do_fileIsSymbolicLink(const std::string& path) const
{
    const auto type = do_fileType(pathRemoveTrailingSlash(path));
    return type && isSymbolicLink(*type);
}

std::optional<std::string> FileSystem2::do_fileRename(const std::string& path,
                                                      const std::string& newName) const
{
    const auto newPath = pathChildId(pathParentId(path), {newName});
    if (!isName(newName) || !existsAsFile(path) || !renameTo(path, newPath)) {
        return std::nullopt;
    }
    return newPath;
}

std::optional<std::string> FileSystem2::do_fileMove(const std::string& path,
                                                    const std::string& targetDirectory) const
{
    const auto name = pathFileName(path);
    const auto newPath = pathChildId(targetDirectory, {name});
    if (!isName(name) || !do_fileMoveAs(path, newPath)) {
        return std::nullopt;
    }
    return newPath;
}

std::optional<std::string>
FileSystem2::do_fileCopy(const std::string& path, const StorageSystem& target,
                         const std::string& targetDirectory, const std::string& name,
                         bool failIfExists, const StorageSystemProgress& progress,
                         Utilities::Flags<StorageSystemCopyOptionFlag> options,
                         std::optional<std::uint64_t> bufferSize) const
{
    if (!isName(name)) {
        return std::nullopt;
    }
    const auto targetPath = PathText::childId(targetDirectory, {name});
    if (failIfExists) {
        options |= CopyOption::FailIfExists;
    }
    if (!do_fileCopyAs(path, target, targetPath, progress, options, bufferSize)) {
        return std::nullopt;
    }
    return targetPath;
}

std::optional<std::string> FileSystem2::do_fileSymbolicLinkCreate(const std::string& linkDirectory,
                                                                  const std::string& name,
                                                                  const std::string& target,
                                                                  bool failIfLinkExists) const
{
    const auto linkPath = pathChildId(linkDirectory, {name});
    if (!isName(name) || !fileSymbolicLinkCreateAs(target, linkPath, failIfLinkExists)) {
        return std::nullopt;
    }
    return linkPath;
}

std::optional<std::string> FileSystem2::do_fileSymbolicLinkTargetFileId(const std::string& path,
                                                                        bool followChain) const
{
    if (followChain) {
        auto end = followLinks(*this, path);
        return end ? std::make_optional(std::move(end->path)) : std::nullopt;
    }
    auto target = do_fileSymbolicLinkTarget(path);
    if (!target || target->empty() || pathIsAbsolute(*target)) {
        return target && !target->empty() ? target : std::nullopt;
    }
    return pathChildId(pathParentId(path), {*target});
}

std::string FileSystem2::do_canonizeDirectoryId(const std::string& path) const
{
    return pathCanonize(path);
}

bool FileSystem2::do_directoryIsSymbolicLink(const std::string& path) const
{
    const auto type = do_directoryType(path);
    return type && isSymbolicLink(*type);
}

std::optional<StorageSystemFileInfo> FileSystem2::do_directoryInfo(const std::string& path) const
{
    auto info = infoOfItself(*this, path);
    if (info && !isDirectory(info->type)) {
        fail(FailureCode::NotDirectory, {}, path);
        return std::nullopt;
    }
    return info;
}

std::optional<std::string>
FileSystem2::do_directoryCreate(const std::string& parentPath,
                                const std::vector<std::string>& names, bool exclusive,
                                Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    if (names.empty() || !std::all_of(names.begin(), names.end(), isName)) {
        return std::nullopt;
    }
    auto path = parentPath;
    for (auto name = names.begin(); name != names.end(); ++name) {
        path = pathChildId(path, {*name});
        const bool isLast = std::next(name) == names.end();
        if (!makeDirectory(path, isLast && exclusive,
                           isLast ? permissions : passable(permissions))) {
            return std::nullopt;
        }
    }
    return path;
}

bool FileSystem2::do_directoryRemove(const std::string& path, bool recursive) const
{
    return recursive ? removeForSlot(*this, path) : do_directoryRemove(path);
}

std::optional<std::string> FileSystem2::do_directoryRename(const std::string& path,
                                                           const std::string& newName) const
{
    const auto newPath = pathChildId(pathParentId(path), {newName});
    if (!isName(newName) || !do_directoryRenameAs(path, newPath)) {
        return std::nullopt;
    }
    return newPath;
}

std::optional<std::string> FileSystem2::do_directoryMove(const std::string& path,
                                                         const std::string& targetDirectory) const
{
    const auto name = pathFileName(path);
    const auto newPath = pathChildId(targetDirectory, {name});
    if (!isName(name) || !do_directoryMoveAs(path, newPath)) {
        return std::nullopt;
    }
    return newPath;
}

std::optional<StorageSystemStorageInfo>
FileSystem2::do_directoryStorageInfo(const std::string& path) const
{
    return do_fileStorageInfo(path);
}

std::optional<Utilities::Flags<PosixFilePermissionFlag>>
FileSystem2::do_directoryGetPermissions(const std::string& path) const
{
    const auto info = do_directoryInfo(path);
    return info ? std::make_optional(info->permissions) : std::nullopt;
}

bool FileSystem2::do_directorySetPermissions(
    const std::string& path, const Utilities::Flags<PosixFilePermissionFlag>& permissions) const
{
    return do_directoryInfo(path) && do_fileSetPermissions(path, permissions);
}

std::optional<StorageSystemTimePoint>
FileSystem2::do_directoryGetModTime(const std::string& path) const
{
    const auto info = do_directoryInfo(path);
    return info ? std::make_optional(info->modTime) : std::nullopt;
}

bool FileSystem2::do_directorySetModTime(const std::string& path,
                                         const StorageSystemTimePoint time) const
{
    return do_directoryInfo(path) && do_fileSetModTime(path, time);
}

std::optional<std::string>
FileSystem2::do_directorySymbolicLinkCreate(const std::string& linkDirectory,
                                            const std::string& name, const std::string& target,
                                            bool failIfLinkExists) const
{
    const auto linkPath = pathChildId(linkDirectory, {name});
    if (!isName(name) || !directorySymbolicLinkCreateAs(target, linkPath, failIfLinkExists)) {
        return std::nullopt;
    }
    return linkPath;
}

std::optional<std::string>
FileSystem2::do_directorySymbolicLinkTargetDirectoryId(const std::string& path,
                                                       bool followChain) const
{
    auto target = do_fileSymbolicLinkTargetFileId(path, followChain);
    return target && do_directoryExists(*target) ? target : std::nullopt;
}

std::string FileSystem2::do_displayPath(const std::string& path) const
{
    const auto host = hostName();
    return host.empty() ? path : host + ":" + path;
}

std::string FileSystem2::do_pathCanonize(const std::string& path) const
{
    return PathText::canonize(path);
}

std::string FileSystem2::do_pathFileName(const std::string& path) const
{
    return PathText::fileName(path);
}

bool FileSystem2::do_pathHasFilterPath(const std::string& path) const
{
    return PathText::hasFilter(path);
}

bool FileSystem2::do_pathIsAbsolute(const std::string& path) const
{
    return PathText::isAbsolute(path);
}

std::string FileSystem2::do_pathFileExtension(const std::string& path, bool complete) const
{
    return PathText::fileExtension(path, complete);
}

std::string FileSystem2::do_pathFileStripExtension(const std::string& path) const
{
    return PathText::stripExtension(path);
}

std::string FileSystem2::do_pathParentId(const std::string& path) const
{
    return PathText::parentId(path);
}

std::string FileSystem2::do_pathChildId(const std::string& path,
                                        const std::vector<std::string>& names) const
{
    return PathText::childId(path, names);
}

std::string FileSystem2::do_pathEnsureLeadingSlash(const std::string& path) const
{
    return PathText::ensureLeadingSlash(path);
}

std::string FileSystem2::do_pathRemoveLeadingSlash(const std::string& path) const
{
    return PathText::removeLeadingSlash(path);
}

std::string FileSystem2::do_pathEnsureTrailingSlash(const std::string& path) const
{
    return PathText::ensureTrailingSlash(path);
}

std::string FileSystem2::do_pathRemoveTrailingSlash(const std::string& path) const
{
    return PathText::removeTrailingSlash(path);
}

std::unique_ptr<StorageSystemFile>
FileSystem2::do_fileCreateAs(const std::string& path, bool failIfExists, bool makePath,
                             Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    using Mode = StorageSystemFileOpenModeFlag;
    const auto mode =
        Mode::Read | Mode::Write | Mode::Create | (failIfExists ? Mode::Exclusive : Mode::Truncate);
    auto file = do_fileOpen(path, mode, permissions);
    const auto parent = pathParentId(path);
    // As a rule the parent is there, and then it need not be asked about.
    if (file == nullptr && makePath && !parent.empty() && !do_directoryExists(parent) &&
        do_directoryMakePath(parent, false, defaultDirectoryPermissions)) {
        file = do_fileOpen(path, mode, permissions);
    }
    return file;
}

bool FileSystem2::do_fileMoveAs(const std::string& path, const std::string& newPath) const
{
    if (!existsAsFile(path) || !isFree(newPath)) {
        return false;
    }
    return renameTo(path, newPath) || moveByCopyForSlot(*this, path, newPath);
}

bool FileSystem2::do_fileCopyAs(const std::string& path, const StorageSystem& target,
                                const std::string& targetPath,
                                const StorageSystemProgress& progress,
                                Utilities::Flags<StorageSystemCopyOptionFlag> options,
                                std::optional<std::uint64_t> bufferSize) const
{
    auto source = infoOfItself(*this, path);
    if (!source) {
        return false;
    }
    source->fileId = path;
    return copyForSlot({*this, path, *source, target, targetPath, progress, options, bufferSize});
}

std::optional<FileMetaData> FileSystem2::do_fileMetaData(const std::string& path) const
{
    auto info = do_fileInfo(path);
    if (!info) {
        return std::nullopt;
    }
    FileMetaData metaData;
    metaData.displayPath = displayPath(path);
    metaData.extension = pathFileExtension(path, false);
    if (isSymbolicLink(info->type)) {
        metaData.linkTarget = do_fileSymbolicLinkTarget(path);
    }
    metaData.info = *std::move(info);
    return metaData;
}

bool FileSystem2::do_directoryMakePath(const std::string& path, bool exclusive,
                                       Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    std::vector<std::string> missing;
    for (auto way = path; !way.empty() && !do_directoryExists(way); way = pathParentId(way)) {
        missing.push_back(way);
    }
    if (missing.empty()) {
        return !exclusive || fail(FailureCode::Exists, {}, path);
    }
    return std::all_of(missing.rbegin(), missing.rend(), [&](const std::string& directory) {
        const bool isLast = &directory == &missing.front();
        return makeDirectory(directory, isLast && exclusive,
                             isLast ? permissions : passable(permissions));
    });
}

bool FileSystem2::do_directoryRenameAs(const std::string& path, const std::string& newPath) const
{
    return (!PathText::isWithin(path, newPath) || fail(FailureCode::IntoItself, {}, path)) &&
           do_directoryInfo(path) && renameTo(path, newPath);
}

bool FileSystem2::do_directoryMoveAs(const std::string& path, const std::string& newPath) const
{
    if (!do_directoryInfo(path) || !isFree(pathRemoveTrailingSlash(newPath))) {
        return false;
    }
    if (do_directoryRenameAs(path, newPath)) {
        return true;
    }
    // Before a whole tree is read for nothing.
    const auto parent = pathParentId(newPath);
    return (parent.empty() || do_directoryExists(parent)) &&
           moveByCopyForSlot(*this, path, newPath);
}

std::vector<std::string>
FileSystem2::do_directoryListFileNamesWithFilterPath(const std::string& path) const
{
    const auto pattern = pathFileName(path);
    if (pattern.empty()) {
        return {};
    }
    const auto directory = pathParentId(path);
    return do_directoryListFileNames(directory.empty() ? "." : directory, pattern,
                                     StorageSystemDirectoryFilterType::SearchPattern);
}

} // namespace FileSystem
