#include "path/LinkResolution.h"
#include "path/NameCheck.h"
#include "path/PathText.h"
#include "queue/SlotQueue.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystem.h>
#include <FileSystem/StorageSystemFile.h>
#include <FileSystem/StorageSystemServices.h>

#include <algorithm>
#include <regex>

namespace FileSystem {

namespace {

/// What a listing gives, nothing for what is no path. A filter that is no regular expression is
/// told before it ends the listing.
template <class List>
auto listed(const std::string& path, const List& list) -> decltype(list())
{
    try {
        return isPath(path) ? list() : decltype(list())();
    } catch (const std::regex_error& error) {
        fail(FailureCode::BadName, error.what());
        throw;
    }
}

} // namespace

StorageSystem::StorageSystem()
    : services_(std::make_unique<StorageSystemServices>(*this))
{}

StorageSystem::~StorageSystem()
{
    *alive_ = false;
}

std::string StorageSystem::hostName() const
{
    FailureScope scope("hostName");
    return scope.asNoted(do_hostName());
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
    FailureScope scope("fileCreate", directoryPath, name);
    return scope.result(
        isPath(directoryPath) && isPath(name)
            ? own(do_fileCreate(directoryPath, name, failIfExists, makePath, permissions))
            : nullptr);
}

std::unique_ptr<StorageSystemFile>
StorageSystem::fileOpen(const std::string& path,
                        Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                        Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    FailureScope scope("fileOpen", path);
    return scope.result(namesEntry(path) ? own(do_fileOpen(path, mode, permissions)) : nullptr);
}

std::unique_ptr<StorageSystemFile>
StorageSystem::own(std::unique_ptr<StorageSystemFile>&& file) const
{
    if (file != nullptr) {
        file->belongTo(*this);
    }
    return std::move(file);
}

void StorageSystem::setListingLimit(std::uint64_t entries) noexcept
{
    listingLimit_ = entries;
}

std::uint64_t StorageSystem::listingLimit() const noexcept
{
    return listingLimit_;
}

bool StorageSystem::fileIsSymbolicLink(const std::string& path) const
{
    FailureScope scope("fileIsSymbolicLink", path);
    return scope.answer(namesEntry(path) && do_fileIsSymbolicLink(path));
}

bool StorageSystem::fileExists(const std::string& path, bool linkCounts) const
{
    FailureScope scope("fileExists", path);
    if (linkCounts) {
        return scope.answer(namesEntry(path) && do_fileExists(path));
    }
    const auto type = fileType(path);
    return scope.answer(type && !isDirectory(*type) && !isSymbolicLink(*type));
}

std::optional<std::uint64_t> StorageSystem::fileSize(const std::string& path) const
{
    FailureScope scope("fileSize", path);
    return scope.result(namesEntry(path) ? do_fileSize(path) : std::nullopt);
}

std::optional<StorageSystemFileInfo> StorageSystem::fileInfo(const std::string& path) const
{
    FailureScope scope("fileInfo", path);
    return scope.result(namesEntry(path) ? do_fileInfo(path) : std::nullopt);
}

std::optional<Utilities::Flags<StorageSystemFileTypeFlag>>
StorageSystem::fileType(const std::string& path) const
{
    FailureScope scope("fileType", path);
    return scope.result(namesEntry(path) ? do_fileType(path) : std::nullopt);
}

std::optional<StorageSystemStorageInfo>
StorageSystem::fileStorageInfo(const std::string& path) const
{
    FailureScope scope("fileStorageInfo", path);
    return scope.result(namesEntry(path) ? do_fileStorageInfo(path) : std::nullopt);
}

bool StorageSystem::fileRemove(const std::string& path) const
{
    FailureScope scope("fileRemove", path);
    return scope.result(namesEntry(path) && do_fileRemove(path));
}

std::optional<std::string> StorageSystem::fileRename(const std::string& path,
                                                     const std::string& newName) const
{
    FailureScope scope("fileRename", path, newName);
    return scope.result(namesEntry(path) && isPath(newName) ? do_fileRename(path, newName)
                                                            : std::nullopt);
}

std::optional<std::string> StorageSystem::fileMove(const std::string& path,
                                                   const std::string& targetDirectory) const
{
    FailureScope scope("fileMove", path, targetDirectory);
    return scope.result(namesEntry(path) && isPath(targetDirectory)
                            ? do_fileMove(path, targetDirectory)
                            : std::nullopt);
}

std::optional<std::string>
StorageSystem::fileCopy(const std::string& path, const StorageSystem& target,
                        const std::string& targetDirectory, const std::string& name,
                        bool failIfExists, const StorageSystemProgress& progress,
                        Utilities::Flags<StorageSystemCopyOptionFlag> options,
                        std::optional<std::uint64_t> bufferSize) const
{
    FailureScope scope("fileCopy", path, targetDirectory);
    return scope.result(namesEntry(path) && isPath(targetDirectory) && isPath(name)
                            ? do_fileCopy(path, target, targetDirectory, name, failIfExists,
                                          progress, options, bufferSize)
                            : std::nullopt);
}

std::optional<Utilities::Flags<PosixFilePermissionFlag>>
StorageSystem::fileGetPermissions(const std::string& path) const
{
    FailureScope scope("fileGetPermissions", path);
    return scope.result(namesEntry(path) ? do_fileGetPermissions(path) : std::nullopt);
}

bool StorageSystem::fileSetPermissions(const std::string& path,
                                       Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    FailureScope scope("fileSetPermissions", path);
    return scope.result(namesEntry(path) && do_fileSetPermissions(path, permissions));
}

std::optional<StorageSystemTimePoint> StorageSystem::fileGetModTime(const std::string& path) const
{
    FailureScope scope("fileGetModTime", path);
    return scope.result(namesEntry(path) ? do_fileGetModTime(path) : std::nullopt);
}

bool StorageSystem::fileSetModTime(const std::string& path, StorageSystemTimePoint time) const
{
    FailureScope scope("fileSetModTime", path);
    return scope.result(namesEntry(path) && do_fileSetModTime(path, time));
}

std::optional<std::string> StorageSystem::fileSymbolicLinkCreate(const std::string& linkDirectory,
                                                                 const std::string& name,
                                                                 const std::string& target,
                                                                 bool failIfLinkExists) const
{
    FailureScope scope("fileSymbolicLinkCreate", linkDirectory, target);
    return scope.result(
        isPath(linkDirectory) && isPath(name) && isPath(target)
            ? do_fileSymbolicLinkCreate(linkDirectory, name, target, failIfLinkExists)
            : std::nullopt);
}

std::optional<std::string> StorageSystem::fileSymbolicLinkTarget(const std::string& path) const
{
    FailureScope scope("fileSymbolicLinkTarget", path);
    return scope.result(namesEntry(path) ? do_fileSymbolicLinkTarget(path) : std::nullopt);
}

std::optional<std::string> StorageSystem::fileSymbolicLinkTargetFileId(const std::string& path,
                                                                       bool followChain) const
{
    FailureScope scope("fileSymbolicLinkTargetFileId", path);
    return scope.result(namesEntry(path) ? do_fileSymbolicLinkTargetFileId(path, followChain)
                                         : std::nullopt);
}

bool StorageSystem::fileSymbolicLinkRemove(const std::string& path) const
{
    FailureScope scope("fileSymbolicLinkRemove", path);
    return scope.result(namesEntry(path) && do_fileSymbolicLinkRemove(path));
}

std::string StorageSystem::canonizeDirectoryId(const std::string& path) const
{
    return do_canonizeDirectoryId(path);
}

std::optional<Utilities::Flags<StorageSystemFileTypeFlag>>
StorageSystem::directoryType(const std::string& path) const
{
    FailureScope scope("directoryType", path);
    return scope.result(namesEntry(path) ? do_directoryType(path) : std::nullopt);
}

bool StorageSystem::directoryIsSymbolicLink(const std::string& path) const
{
    FailureScope scope("directoryIsSymbolicLink", path);
    return scope.answer(namesEntry(path) && do_directoryIsSymbolicLink(path));
}

std::optional<StorageSystemFileInfo> StorageSystem::directoryInfo(const std::string& path) const
{
    FailureScope scope("directoryInfo", path);
    return scope.result(namesEntry(path) ? do_directoryInfo(path) : std::nullopt);
}

std::optional<std::string>
StorageSystem::directoryCreate(const std::string& parentPath, const std::vector<std::string>& names,
                               bool exclusive,
                               Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    FailureScope scope("directoryCreate", parentPath);
    return scope.result(isPath(parentPath) && std::all_of(names.begin(), names.end(), isPath)
                            ? do_directoryCreate(parentPath, names, exclusive, permissions)
                            : std::nullopt);
}

bool StorageSystem::directoryExists(const std::string& path, bool linkCounts) const
{
    FailureScope scope("directoryExists", path);
    if (linkCounts) {
        return scope.answer(namesEntry(path) && do_directoryExists(path));
    }
    // With a slash behind it a link would be taken for the directory that it leads to.
    const auto type = fileType(PathText::removeTrailingSlash(path));
    return scope.answer(type && (isDirectory(*type) || fail(FailureCode::NotDirectory)));
}

bool StorageSystem::directoryRemove(const std::string& path, bool recursive) const
{
    FailureScope scope("directoryRemove", path);
    return scope.result(namesEntry(path) && do_directoryRemove(path, recursive));
}

std::optional<std::string> StorageSystem::directoryRename(const std::string& path,
                                                          const std::string& newName) const
{
    FailureScope scope("directoryRename", path, newName);
    return scope.result(namesEntry(path) && isPath(newName) ? do_directoryRename(path, newName)
                                                            : std::nullopt);
}

std::optional<std::string> StorageSystem::directoryMove(const std::string& path,
                                                        const std::string& targetDirectory) const
{
    FailureScope scope("directoryMove", path, targetDirectory);
    return scope.result(namesEntry(path) && isPath(targetDirectory)
                            ? do_directoryMove(path, targetDirectory)
                            : std::nullopt);
}

std::vector<StorageSystemDirectoryInfo>
StorageSystem::directoryList(const std::string& path, const std::string& filter,
                             StorageSystemDirectoryFilterType type) const
{
    FailureScope scope("directoryList", path);
    return scope.asNoted(listed(path, [&] { return do_directoryList(path, filter, type); }));
}

std::vector<StorageSystemFileInfo>
StorageSystem::directoryFileInfoList(const std::string& path, const std::string& filter,
                                     StorageSystemDirectoryFilterType type) const
{
    FailureScope scope("directoryFileInfoList", path);
    return scope.asNoted(
        listed(path, [&] { return do_directoryFileInfoList(path, filter, type); }));
}

std::optional<std::vector<StorageSystemFileInfo>>
StorageSystem::directoryReadFully(const std::string& path) const
{
    FailureScope scope("directoryReadFully", path);
    if (!namesEntry(path)) {
        return scope.result(std::optional<std::vector<StorageSystemFileInfo>>());
    }
    return scope.result(services_->readDirectory(path));
}

std::optional<std::string> StorageSystem::absolutePath(const std::string& path) const
{
    FailureScope scope("absolutePath", path);
    if (!namesEntry(path)) {
        return scope.result(std::optional<std::string>());
    }
    if (PathText::isAbsolute(path)) {
        return scope.result(std::make_optional(path));
    }
    const auto start = services_->startDirectory();
    return scope.result(start && PathText::isAbsolute(*start)
                            ? std::make_optional(PathText::childId(*start, {path}))
                            : std::nullopt);
}

void StorageSystem::setServices(std::unique_ptr<StorageSystemServices> services)
{
    if (services != nullptr) {
        services_ = std::move(services);
    }
}

std::unique_ptr<StorageSystemQueue>
StorageSystem::createQueue(const std::function<bool()>& goesOn) const
{
    auto queue = services_->createQueue(alive_, goesOn);
    return queue != nullptr ? std::move(queue) : std::make_unique<SlotQueue>(*this, alive_);
}

std::vector<std::string>
StorageSystem::directoryListFileNames(const std::string& path, const std::string& filter,
                                      StorageSystemDirectoryFilterType type) const
{
    FailureScope scope("directoryListFileNames", path);
    return scope.asNoted(
        listed(path, [&] { return do_directoryListFileNames(path, filter, type); }));
}

std::optional<StorageSystemStorageInfo>
StorageSystem::directoryStorageInfo(const std::string& path) const
{
    FailureScope scope("directoryStorageInfo", path);
    return scope.result(namesEntry(path) ? do_directoryStorageInfo(path) : std::nullopt);
}

std::optional<Utilities::Flags<PosixFilePermissionFlag>>
StorageSystem::directoryGetPermissions(const std::string& path) const
{
    FailureScope scope("directoryGetPermissions", path);
    return scope.result(namesEntry(path) ? do_directoryGetPermissions(path) : std::nullopt);
}

bool StorageSystem::directorySetPermissions(
    const std::string& path, Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    FailureScope scope("directorySetPermissions", path);
    return scope.result(namesEntry(path) && do_directorySetPermissions(path, permissions));
}

std::optional<StorageSystemTimePoint>
StorageSystem::directoryGetModTime(const std::string& path) const
{
    FailureScope scope("directoryGetModTime", path);
    return scope.result(namesEntry(path) ? do_directoryGetModTime(path) : std::nullopt);
}

bool StorageSystem::directorySetModTime(const std::string& path, StorageSystemTimePoint time) const
{
    FailureScope scope("directorySetModTime", path);
    return scope.result(namesEntry(path) && do_directorySetModTime(path, time));
}

std::optional<std::string>
StorageSystem::directorySymbolicLinkCreate(const std::string& linkDirectory,
                                           const std::string& name, const std::string& target,
                                           bool failIfLinkExists) const
{
    FailureScope scope("directorySymbolicLinkCreate", linkDirectory, target);
    return scope.result(
        isPath(linkDirectory) && isPath(name) && isPath(target)
            ? do_directorySymbolicLinkCreate(linkDirectory, name, target, failIfLinkExists)
            : std::nullopt);
}

std::optional<std::string> StorageSystem::directorySymbolicLinkTarget(const std::string& path) const
{
    FailureScope scope("directorySymbolicLinkTarget", path);
    return scope.result(namesEntry(path) ? do_directorySymbolicLinkTarget(path) : std::nullopt);
}

std::optional<std::string>
StorageSystem::directorySymbolicLinkTargetDirectoryId(const std::string& path,
                                                      bool followChain) const
{
    FailureScope scope("directorySymbolicLinkTargetDirectoryId", path);
    return scope.result(namesEntry(path)
                            ? do_directorySymbolicLinkTargetDirectoryId(path, followChain)
                            : std::nullopt);
}

bool StorageSystem::directorySymbolicLinkRemove(const std::string& path) const
{
    FailureScope scope("directorySymbolicLinkRemove", path);
    return scope.result(namesEntry(path) && do_directorySymbolicLinkRemove(path));
}

std::string StorageSystem::displayPath(const std::string& path) const
{
    FailureScope scope("displayPath", path);
    return scope.asNoted(do_displayPath(path));
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
    const auto end = isSymbolicLink(*type) ? followLinks(*this, place) : std::nullopt;
    if (!end || !end->type || !isDirectory(*end->type)) {
        // A link that leads nowhere has told so itself.
        if (!isSymbolicLink(*type) || (end && end->type)) {
            fail(FailureCode::NotDirectory);
        }
        return std::nullopt;
    }
    return StorageSystemFileTypeFlag::SymbolicLink | StorageSystemFileTypeFlag::Directory;
}

bool StorageSystem::do_directoryExists(const std::string& path) const
{
    return do_directoryType(path).has_value();
}

} // namespace FileSystem
