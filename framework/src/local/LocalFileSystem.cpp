#include "SystemCall.h"
#include "local/LocalAttributes.h"
#include "local/LocalCalls.h"
#include "local/LocalDirectory.h"
#include "local/LocalError.h"
#include "local/LocalFile.h"
#include "local/LocalQueue.h"
#include "local/LocalTreeRemoval.h"
#include "posix/FileDescriptor.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/LocalFileSystem.h>
#include <FileSystem/NameFilter.h>
#include <FileSystem/OpenMode.h>
#include <FileSystem/StorageSystemServices.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace FileSystem {

namespace {

std::optional<struct stat> attributesOf(const std::string& path)
{
    return readAttributes(AT_FDCWD, systemPath(path));
}

StorageSystemFileInfo describe(const FileSystem2& system, const std::string& path,
                               const struct stat& attributes)
{
    StorageSystemFileInfo info;
    info.name = system.pathFileName(path);
    info.fileId = path;
    info.parentDirectoryId = system.pathParentId(path);
    setAttributes(info, attributes);
    if (isDirectory(info.type)) {
        info.size = 0;
    }
    return info;
}

bool isLink(const std::string& path)
{
    const auto attributes = attributesOf(path);
    return attributes && S_ISLNK(attributes->st_mode);
}

/// \param flags of open(2).
std::unique_ptr<StorageSystemFile> openFile(const LocalFileSystem& system, const std::string& path,
                                            int flags,
                                            Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                                            Utilities::Flags<PosixFilePermissionFlag> permissions)
{
    auto descriptor =
        LocalCalls::openFile(AT_FDCWD, systemPath(path), flags, LocalCalls::modeOf(permissions));
    return descriptor.get() != -1
               ? std::make_unique<LocalFile>(std::move(descriptor), path, mode, system)
               : nullptr;
}

/// Of a directory that is open only as a place. For one that may not be read, the process's list of
/// descriptors must be mounted.
bool changeMode(int directory, mode_t mode)
{
    const Posix::FileDescriptor readable(retryInterrupted(
        [&] { return ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    const auto byPath = "/proc/self/fd/" + std::to_string(directory);
    return readable.get() != -1 ? ::fchmod(readable.get(), mode) == 0
                                : ::chmod(byPath.c_str(), mode) == 0;
}

// Above a relative path there is the current directory. Empty: errno says why.
std::optional<StorageSystemStorageInfo> volumeOf(const std::string& path)
{
    struct statvfs volume = {};
    const char* const place = path.empty() ? "." : path.c_str();
    if (retryInterrupted([&] { return ::statvfs(place, &volume); }) != 0) {
        return std::nullopt;
    }
    const std::uint64_t block = volume.f_frsize;
    StorageSystemStorageInfo info;
    info.free = volume.f_bfree * block;
    info.available = volume.f_bavail * block;
    info.capacity = volume.f_blocks * block;
    return info;
}

// A path that already ends in a slash gets another one: the entry's id begins with the path as the
// caller gave it.
std::string entryId(const std::string& directory, const char* name)
{
    return directory + "/" + name;
}

/// What is known of the entries that pass, up to the directory's end or a failure.
std::vector<StorageSystemFileInfo>
describeEntries(LocalDirectory& directory, const std::string& path, const NameFilter& wanted)
{
    std::vector<StorageSystemFileInfo> entries;
    while (const dirent* const entry = directory.next()) {
        if (!wanted.passes(entry->d_name)) {
            continue;
        }
        const auto attributes = readAttributes(directory.descriptor(), entry->d_name);
        if (!attributes && errno == ENOENT) {
            continue; // Removed since the directory was read.
        }
        StorageSystemFileInfo& info = entries.emplace_back();
        info.name = entry->d_name;
        info.fileId = entryId(path, entry->d_name);
        info.parentDirectoryId = path;
        if (attributes) {
            setAttributes(info, *attributes);
        } else {
            // In a directory that may be read but not entered the kind is all there is to know.
            info.type = directory.typeOf(*entry);
        }
    }
    return entries;
}

std::optional<std::string> currentDirectory()
{
    std::error_code error;
    const auto path = std::filesystem::current_path(error);
    return error ? std::nullopt : std::make_optional(path.string());
}

} // namespace

class LocalFileSystem::Services final : public StorageSystemServices
{
public:
    explicit Services(const LocalFileSystem& system)
        : StorageSystemServices(system)
        , system_(system)
    {}

    std::unique_ptr<StorageSystemQueue>
    createQueue(const std::shared_ptr<const std::atomic<bool>>& isAlive,
                const std::function<bool()>& /*goesOn*/) const override
    {
        return std::make_unique<LocalQueue>(system_, isAlive);
    }

    std::optional<std::vector<StorageSystemFileInfo>>
    readDirectory(const std::string& path) const override
    {
        LocalDirectory directory(path, system_.listingLimit());
        auto entries = describeEntries(directory, path, NameFilter());
        return directory.isComplete() ? std::make_optional(std::move(entries)) : std::nullopt;
    }

    std::optional<std::string> startDirectory() const override { return currentDirectory(); }

    bool replace(const std::string& path, const std::string& newPath) const override
    {
        return LocalError::succeeded(::rename(systemPath(path), systemPath(newPath)) == 0);
    }

    bool leadsToNoFile(const std::string& path) const override
    {
        struct stat target = {};
        return ::stat(systemPath(path), &target) == 0 && !S_ISREG(target.st_mode) &&
               !S_ISDIR(target.st_mode);
    }

    std::optional<StorageSystemAttributes> look(const std::string& path) const override
    {
        const auto now = FileSystem::attributesOf(path);
        return LocalError::answered(now.has_value()) ? std::make_optional(toAttributes(*now))
                                                     : std::nullopt;
    }

private:
    const LocalFileSystem& system_;
};

LocalFileSystem::LocalFileSystem()
{
    setServices(std::make_unique<Services>(*this));
}

LocalFileSystem::~LocalFileSystem() = default;

std::string LocalFileSystem::getLastError()
{
    return LocalError::message();
}

void LocalFileSystem::clearLastError() noexcept
{
    LocalError::clear();
}

std::string LocalFileSystem::do_hostName() const
{
    return {};
}

StorageSystemType LocalFileSystem::do_getType() const
{
    return StorageSystemType::Local;
}

bool LocalFileSystem::do_isValid() const
{
    return true;
}

std::unique_ptr<StorageSystemFile>
LocalFileSystem::do_fileOpen(const std::string& path,
                             Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                             Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    return openFile(*this, path, storageSystemFileOpenModeToPosixMode(mode), mode, permissions);
}

std::optional<StorageSystemFileInfo> LocalFileSystem::do_fileInfo(const std::string& path) const
{
    const auto attributes = attributesOf(path);
    if (!LocalError::answered(attributes.has_value())) {
        return std::nullopt;
    }
    return describe(*this, path, *attributes);
}

std::optional<std::uint32_t> LocalFileSystem::fileMode(const std::string& path) const
{
    constexpr std::uint32_t modeBits = 07777;
    FailureScope scope("fileMode", path);
    const auto attributes = attributesOf(path);
    return scope.result(LocalError::answered(attributes.has_value())
                            ? std::optional(attributes->st_mode & modeBits)
                            : std::nullopt);
}

std::optional<StorageSystemStorageInfo>
LocalFileSystem::do_fileStorageInfo(const std::string& path) const
{
    // A link stands on the volume that holds it, whatever it leads to.
    std::string place = isLink(path) ? pathParentId(path) : path;
    auto info = volumeOf(place);
    while (!info && !place.empty() && (errno == ENOENT || errno == ENOTDIR)) {
        place = pathParentId(place);
        info = volumeOf(place);
    }
    static_cast<void>(LocalError::answered(info.has_value()));
    return info;
}

bool LocalFileSystem::do_fileRemove(const std::string& path) const
{
    return LocalError::succeeded(::unlink(systemPath(path)) == 0);
}

bool LocalFileSystem::do_fileSetPermissions(
    const std::string& path, const Utilities::Flags<PosixFilePermissionFlag>& permissions) const
{
    struct stat now = {};
    return LocalError::succeeded(
        ::stat(systemPath(path), &now) == 0 &&
        ::chmod(systemPath(path), LocalCalls::modeOf(permissions) |
                                      LocalCalls::specialBitsOfDirectory(now.st_mode)) == 0);
}

// By a descriptor: a link that takes the directory's place must not lead to another.
bool LocalFileSystem::do_directorySetPermissions(
    const std::string& path, const Utilities::Flags<PosixFilePermissionFlag>& permissions) const
{
    const auto place = pathRemoveTrailingSlash(path);
    const Posix::FileDescriptor directory(retryInterrupted(
        [&] { return ::open(systemPath(place), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
    if (!LocalError::succeeded(directory.get() != -1)) {
        return false;
    }
    const auto now = attributesOfOpen(directory.get());
    const mode_t sticky = static_cast<mode_t>(permissions.raw()) & S_ISVTX;
    return LocalError::succeeded(
        now && changeMode(directory.get(), LocalCalls::modeOf(permissions) | sticky |
                                               LocalCalls::specialBitsOfDirectory(now->st_mode)));
}

bool LocalFileSystem::do_fileSetModTime(const std::string& path,
                                        const StorageSystemTimePoint time) const
{
    return LocalCalls::setModTime(AT_FDCWD, systemPath(path), time);
}

std::optional<std::string> LocalFileSystem::do_fileSymbolicLinkTarget(const std::string& path) const
{
    return LocalCalls::readLink(AT_FDCWD, systemPath(path));
}

bool LocalFileSystem::do_fileSymbolicLinkRemove(const std::string& path) const
{
    const auto attributes = attributesOf(path);
    if (!LocalError::succeeded(attributes.has_value())) {
        return false;
    }
    return (S_ISLNK(attributes->st_mode) || fail(FailureCode::NotALink)) && do_fileRemove(path);
}

std::vector<StorageSystemDirectoryInfo>
LocalFileSystem::do_directoryList(const std::string& path, const std::string& filter,
                                  StorageSystemDirectoryFilterType type) const
{
    const NameFilter wanted(filter, type);
    std::vector<StorageSystemDirectoryInfo> entries;
    LocalDirectory directory(path, listingLimit());
    while (const dirent* const entry = directory.next()) {
        if (wanted.passes(entry->d_name)) {
            entries.push_back(
                {entry->d_name, entryId(path, entry->d_name), path, directory.typeOf(*entry)});
        }
    }
    return entries;
}

std::vector<StorageSystemFileInfo>
LocalFileSystem::do_directoryFileInfoList(const std::string& path, const std::string& filter,
                                          StorageSystemDirectoryFilterType type) const
{
    const NameFilter wanted(filter, type);
    LocalDirectory directory(path, listingLimit());
    return describeEntries(directory, path, wanted);
}

std::vector<std::string>
LocalFileSystem::do_directoryListFileNames(const std::string& path, const std::string& filter,
                                           StorageSystemDirectoryFilterType type) const
{
    const NameFilter wanted(filter, type);
    std::vector<std::string> names;
    LocalDirectory directory(path, listingLimit());
    while (const dirent* const entry = directory.next()) {
        if (wanted.passes(entry->d_name)) {
            names.emplace_back(entry->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string>
LocalFileSystem::do_directorySymbolicLinkTarget(const std::string& path) const
{
    return do_fileSymbolicLinkTarget(path);
}

bool LocalFileSystem::do_directorySymbolicLinkRemove(const std::string& path) const
{
    return do_fileSymbolicLinkRemove(path);
}

bool LocalFileSystem::do_fileRenameAs(const std::string& path, const std::string& newPath) const
{
    return LocalCalls::rename(AT_FDCWD, systemPath(path), AT_FDCWD, systemPath(newPath));
}

bool LocalFileSystem::do_fileSymbolicLinkCreateAs(const std::string& target,
                                                  const std::string& linkPath,
                                                  bool failIfLinkExists) const
{
    return (!(failIfLinkExists && fileIsSymbolicLink(linkPath)) || fail(FailureCode::Exists)) &&
           replaceByLink(target, linkPath);
}

bool LocalFileSystem::do_directoryCreateAs(
    const std::string& path, bool /*exclusive*/,
    Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    // The system refuses what exists in either case.
    return LocalError::succeeded(::mkdir(systemPath(path), LocalCalls::modeOf(permissions)) == 0);
}

bool LocalFileSystem::do_directoryRemove(const std::string& path) const
{
    return LocalError::succeeded(::rmdir(systemPath(path)) == 0);
}

bool LocalFileSystem::do_directoryRemove(const std::string& path, bool recursive) const
{
    return recursive ? removeLocalTree(path) : do_directoryRemove(path);
}

bool LocalFileSystem::do_directorySymbolicLinkCreateAs(const std::string& target,
                                                       const std::string& linkPath,
                                                       bool failIfLinkExists) const
{
    return (!(failIfLinkExists && directoryIsSymbolicLink(linkPath)) ||
            fail(FailureCode::Exists)) &&
           replaceByLink(target, linkPath);
}

bool LocalFileSystem::replaceByLink(const std::string& target, const std::string& linkPath) const
{
    const auto place = linkPlace(target, linkPath);
    if (!place) {
        return false;
    }
    if (directoryExists(*place, false) && !do_directoryRemove(*place, true)) {
        return false;
    }
    if (fileExists(*place, true) && !do_fileRemove(*place)) {
        return false;
    }
    return LocalError::succeeded(::symlink(target.c_str(), systemPath(*place)) == 0) &&
           do_fileSymbolicLinkTarget(*place) == target;
}

} // namespace FileSystem
