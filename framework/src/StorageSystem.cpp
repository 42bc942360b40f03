#include "LinkResolution.h"
#include "PathText.h"

#include <FileSystem/StorageSystem.h>

#include <algorithm>

namespace FileSystem {

// A text with a NUL byte would reach a system cut short, and name something else. The public
// operations refuse it, once for all systems.
using PathText::canBePath;

StorageSystem::StorageSystem() = default;

StorageSystem::~StorageSystem() = default;

std::string StorageSystem::hostName() const
{
    return do_hostName();
}

StorageSystemType StorageSystem::getType() const
{
    return do_getType();
}

bool StorageSystem::isReadable() const
{
    return do_isReadable();
}

bool StorageSystem::isWriteable() const
{
    return do_isWriteable();
}

bool StorageSystem::isValid() const
{
    return do_isValid();
}

bool StorageSystem::hasSymbolicLinks() const
{
    return do_hasSymbolicLinks();
}

std::uint64_t StorageSystem::recommendedReadBufferSize() const
{
    return do_recommendedReadBufferSize();
}

std::uint64_t StorageSystem::recommendedWriteBufferSize() const
{
    return do_recommendedWriteBufferSize();
}

std::string StorageSystem::canonizeFileId(const std::string& path) const
{
    return do_canonizeFileId(path);
}

std::unique_ptr<StorageSystemFile>
StorageSystem::fileCreate(const std::string& directoryPath, const std::string& name,
                          bool failIfExists, bool makePath,
                          Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    if (!canBePath(directoryPath) || !canBePath(name)) {
        return nullptr;
    }
    return do_fileCreate(directoryPath, name, failIfExists, makePath, permissions);
}

std::unique_ptr<StorageSystemFile>
StorageSystem::fileOpen(const std::string& path,
                        Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                        Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    return canBePath(path) ? do_fileOpen(path, mode, permissions) : nullptr;
}

bool StorageSystem::fileIsSymbolicLink(const std::string& path) const
{
    return canBePath(path) && do_fileIsSymbolicLink(path);
}

bool StorageSystem::fileExists(const std::string& path, bool linkCounts) const
{
    if (linkCounts) {
        return canBePath(path) && do_fileExists(path);
    }
    const auto type = fileType(path);
    return type && !isDirectory(*type) && !isSymbolicLink(*type);
}

std::optional<std::uint64_t> StorageSystem::fileSize(const std::string& path) const
{
    return canBePath(path) ? do_fileSize(path) : std::nullopt;
}

std::optional<StorageSystemFileInfo> StorageSystem::fileInfo(const std::string& path) const
{
    return canBePath(path) ? do_fileInfo(path) : std::nullopt;
}

std::optional<Utilities::Flags<StorageSystemFileTypeFlag>>
StorageSystem::fileType(const std::string& path) const
{
    return canBePath(path) ? do_fileType(path) : std::nullopt;
}

std::optional<StorageSystemStorageInfo>
StorageSystem::fileStorageInfo(const std::string& path) const
{
    return canBePath(path) ? do_fileStorageInfo(path) : std::nullopt;
}

bool StorageSystem::fileRemove(const std::string& path) const
{
    return canBePath(path) && do_fileRemove(path);
}

std::optional<std::string> StorageSystem::fileRename(const std::string& path,
                                                     const std::string& newName) const
{
    return canBePath(path) && canBePath(newName) ? do_fileRename(path, newName) : std::nullopt;
}

std::optional<std::string> StorageSystem::fileMove(const std::string& path,
                                                   const std::string& targetDirectory) const
{
    return canBePath(path) && canBePath(targetDirectory) ? do_fileMove(path, targetDirectory)
                                                         : std::nullopt;
}

std::optional<std::string>
StorageSystem::fileCopy(const std::string& path, const StorageSystem& target,
                        const std::string& targetDirectory, const std::string& name,
                        bool failIfExists, const StorageSystemProgress& progress,
                        Utilities::Flags<StorageSystemCopyOptionFlag> options,
                        std::optional<std::uint64_t> bufferSize) const
{
    if (!canBePath(path) || !canBePath(targetDirectory) || !canBePath(name)) {
        return std::nullopt;
    }
    return do_fileCopy(path, target, targetDirectory, name, failIfExists, progress, options,
                       bufferSize);
}

std::optional<Utilities::Flags<PosixFilePermissionFlag>>
StorageSystem::fileGetPermissions(const std::string& path) const
{
    return canBePath(path) ? do_fileGetPermissions(path) : std::nullopt;
}

bool StorageSystem::fileSetPermissions(const std::string& path,
                                       Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    return canBePath(path) && do_fileSetPermissions(path, permissions);
}

std::optional<StorageSystemTimePoint> StorageSystem::fileGetModTime(const std::string& path) const
{
    return canBePath(path) ? do_fileGetModTime(path) : std::nullopt;
}

bool StorageSystem::fileSetModTime(const std::string& path, StorageSystemTimePoint time) const
{
    return canBePath(path) && do_fileSetModTime(path, time);
}

std::optional<std::string> StorageSystem::fileSymbolicLinkCreate(const std::string& linkDirectory,
                                                                 const std::string& name,
                                                                 const std::string& target,
                                                                 bool failIfLinkExists) const
{
    if (!canBePath(linkDirectory) || !canBePath(name) || !canBePath(target)) {
        return std::nullopt;
    }
    return do_fileSymbolicLinkCreate(linkDirectory, name, target, failIfLinkExists);
}

std::optional<std::string> StorageSystem::fileSymbolicLinkTarget(const std::string& path) const
{
    return canBePath(path) ? do_fileSymbolicLinkTarget(path) : std::nullopt;
}

std::optional<std::string> StorageSystem::fileSymbolicLinkTargetFileId(const std::string& path,
                                                                       bool followChain) const
{
    return canBePath(path) ? do_fileSymbolicLinkTargetFileId(path, followChain) : std::nullopt;
}

bool StorageSystem::fileSymbolicLinkRemove(const std::string& path) const
{
    return canBePath(path) && do_fileSymbolicLinkRemove(path);
}

std::string StorageSystem::canonizeDirectoryId(const std::string& path) const
{
    return do_canonizeDirectoryId(path);
}

std::optional<Utilities::Flags<StorageSystemFileTypeFlag>>
StorageSystem::directoryType(const std::string& path) const
{
    return canBePath(path) ? do_directoryType(path) : std::nullopt;
}

bool StorageSystem::directoryIsSymbolicLink(const std::string& path) const
{
    return canBePath(path) && do_directoryIsSymbolicLink(path);
}

std::optional<StorageSystemFileInfo> StorageSystem::directoryInfo(const std::string& path) const
{
    return canBePath(path) ? do_directoryInfo(path) : std::nullopt;
}

std::optional<std::string>
StorageSystem::directoryCreate(const std::string& parentPath, const std::vector<std::string>& names,
                               bool exclusive,
                               Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    if (!canBePath(parentPath) || !std::all_of(names.begin(), names.end(), canBePath)) {
        return std::nullopt;
    }
    return do_directoryCreate(parentPath, names, exclusive, permissions);
}

bool StorageSystem::directoryExists(const std::string& path, bool linkCounts) const
{
    if (linkCounts) {
        return canBePath(path) && do_directoryExists(path);
    }
    // With a slash behind it a link would be taken for the directory that it leads to.
    const auto type = fileType(PathText::removeTrailingSlash(path));
    return type && isDirectory(*type);
}

bool StorageSystem::directoryRemove(const std::string& path, bool recursive) const
{
    return canBePath(path) && do_directoryRemove(path, recursive);
}

std::optional<std::string> StorageSystem::directoryRename(const std::string& path,
                                                          const std::string& newName) const
{
    return canBePath(path) && canBePath(newName) ? do_directoryRename(path, newName) : std::nullopt;
}

std::optional<std::string> StorageSystem::directoryMove(const std::string& path,
                                                        const std::string& targetDirectory) const
{
    return canBePath(path) && canBePath(targetDirectory) ? do_directoryMove(path, targetDirectory)
                                                         : std::nullopt;
}

std::vector<StorageSystemDirectoryInfo>
StorageSystem::directoryList(const std::string& path, const std::string& filter,
                             StorageSystemDirectoryFilterType type) const
{
    if (!canBePath(path)) {
        return {};
    }
    return do_directoryList(path, filter, type);
}

std::vector<StorageSystemFileInfo>
StorageSystem::directoryFileInfoList(const std::string& path, const std::string& filter,
                                     StorageSystemDirectoryFilterType type) const
{
    if (!canBePath(path)) {
        return {};
    }
    return do_directoryFileInfoList(path, filter, type);
}

std::optional<std::vector<StorageSystemFileInfo>>
StorageSystem::directoryReadFully(const std::string& path) const
{
    if (!canBePath(path)) {
        return std::nullopt;
    }
    if (directoryReader_) {
        return directoryReader_(path);
    }
    auto entries = directoryFileInfoList(path);
    return directoryExists(path, true) ? std::make_optional(std::move(entries)) : std::nullopt;
}

std::optional<std::string> StorageSystem::absolutePath(const std::string& path) const
{
    if (!canBePath(path) || path.empty()) {
        return std::nullopt;
    }
    if (PathText::isAbsolute(path)) {
        return path;
    }
    const auto start = startDirectory_ ? startDirectory_() : std::nullopt;
    return start && PathText::isAbsolute(*start)
               ? std::make_optional(PathText::childId(*start, {path}))
               : std::nullopt;
}

void StorageSystem::setStartDirectory(std::function<std::optional<std::string>()> start)
{
    startDirectory_ = std::move(start);
}

void StorageSystem::setReplacer(
    std::function<bool(const std::string&, const std::string&)> replacer)
{
    replacer_ = std::move(replacer);
}

void StorageSystem::setDirectoryReader(DirectoryReader reader)
{
    directoryReader_ = std::move(reader);
}

std::vector<std::string>
StorageSystem::directoryListFileNames(const std::string& path, const std::string& filter,
                                      StorageSystemDirectoryFilterType type) const
{
    if (!canBePath(path)) {
        return {};
    }
    return do_directoryListFileNames(path, filter, type);
}

std::optional<StorageSystemStorageInfo>
StorageSystem::directoryStorageInfo(const std::string& path) const
{
    return canBePath(path) ? do_directoryStorageInfo(path) : std::nullopt;
}

std::optional<Utilities::Flags<PosixFilePermissionFlag>>
StorageSystem::directoryGetPermissions(const std::string& path) const
{
    return canBePath(path) ? do_directoryGetPermissions(path) : std::nullopt;
}

bool StorageSystem::directorySetPermissions(
    const std::string& path, Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    return canBePath(path) && do_directorySetPermissions(path, permissions);
}

std::optional<StorageSystemTimePoint>
StorageSystem::directoryGetModTime(const std::string& path) const
{
    return canBePath(path) ? do_directoryGetModTime(path) : std::nullopt;
}

bool StorageSystem::directorySetModTime(const std::string& path, StorageSystemTimePoint time) const
{
    return canBePath(path) && do_directorySetModTime(path, time);
}

std::optional<std::string>
StorageSystem::directorySymbolicLinkCreate(const std::string& linkDirectory,
                                           const std::string& name, const std::string& target,
                                           bool failIfLinkExists) const
{
    if (!canBePath(linkDirectory) || !canBePath(name) || !canBePath(target)) {
        return std::nullopt;
    }
    return do_directorySymbolicLinkCreate(linkDirectory, name, target, failIfLinkExists);
}

std::optional<std::string> StorageSystem::directorySymbolicLinkTarget(const std::string& path) const
{
    return canBePath(path) ? do_directorySymbolicLinkTarget(path) : std::nullopt;
}

std::optional<std::string>
StorageSystem::directorySymbolicLinkTargetDirectoryId(const std::string& path,
                                                      bool followChain) const
{
    return canBePath(path) ? do_directorySymbolicLinkTargetDirectoryId(path, followChain)
                           : std::nullopt;
}

bool StorageSystem::directorySymbolicLinkRemove(const std::string& path) const
{
    return canBePath(path) && do_directorySymbolicLinkRemove(path);
}

std::string StorageSystem::displayPath(const std::string& path) const
{
    return do_displayPath(path);
}

bool StorageSystem::do_fileExists(const std::string& path) const
{
    const auto type = do_fileType(path);
    return type && !isDirectory(*type);
}

std::optional<std::uint64_t> StorageSystem::do_fileSize(const std::string& path) const
{
    const auto info = do_fileInfo(path);
    return info ? std::make_optional(info->size) : std::nullopt;
}

std::optional<Utilities::Flags<StorageSystemFileTypeFlag>>
StorageSystem::do_fileType(const std::string& path) const
{
    const auto info = do_fileInfo(path);
    return info ? std::make_optional(info->type) : std::nullopt;
}

std::optional<Utilities::Flags<PosixFilePermissionFlag>>
StorageSystem::do_fileGetPermissions(const std::string& path) const
{
    const auto info = do_fileInfo(path);
    return info ? std::make_optional(info->permissions) : std::nullopt;
}

std::optional<StorageSystemTimePoint>
StorageSystem::do_fileGetModTime(const std::string& path) const
{
    const auto info = do_fileInfo(path);
    return info ? std::make_optional(info->modTime) : std::nullopt;
}

std::optional<Utilities::Flags<StorageSystemFileTypeFlag>>
StorageSystem::do_directoryType(const std::string& path) const
{
    const auto place = PathText::removeTrailingSlash(path);
    const auto type = do_fileType(place);
    if (!type || isDirectory(*type)) {
        return type;
    }
    if (!isSymbolicLink(*type)) {
        return std::nullopt;
    }
    const auto end = followLinks(*this, place);
    if (!end || !end->type || !isDirectory(*end->type)) {
        return std::nullopt;
    }
    return StorageSystemFileTypeFlag::SymbolicLink | StorageSystemFileTypeFlag::Directory;
}

bool StorageSystem::do_directoryExists(const std::string& path) const
{
    return do_directoryType(path).has_value();
}

} // namespace FileSystem
