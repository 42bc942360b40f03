#include "SystemCall.h"
#include "local/FileDescriptor.h"
#include "local/LocalAttributes.h"
#include "local/LocalDirectory.h"
#include "local/LocalError.h"
#include "local/LocalFile.h"
#include "local/LocalTreeRemoval.h"
#include "path/NameFilter.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/LocalFileSystem.h>
#include <FileSystem/OpenMode.h>

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

constexpr mode_t permissionBits = 0777;

mode_t modeOf(Utilities::Flags<PosixFilePermissionFlag> permissions)
{
    return static_cast<mode_t>(permissions.raw()) & permissionBits;
}

// Without O_NONBLOCK a pipe that nobody writes to would hold the call up for ever, and without
// O_NOCTTY a terminal could become the process's own.
FileDescriptor openDescriptor(const std::string& path, int flags, mode_t mode)
{
    flags |= O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    return FileDescriptor(retryInterrupted([&] { return ::open(systemPath(path), flags, mode); }));
}

bool isRegular(const struct stat& attributes)
{
    if (!S_ISREG(attributes.st_mode)) {
        LocalError::note(S_ISDIR(attributes.st_mode) ? EISDIR : EINVAL);
    }
    return S_ISREG(attributes.st_mode) || S_ISDIR(attributes.st_mode)
               ? S_ISREG(attributes.st_mode)
               : fail(FailureCode::NotCopyable);
}

bool isRegular(const FileDescriptor& descriptor)
{
    struct stat attributes = {};
    return LocalError::succeeded(::fstat(descriptor.get(), &attributes) == 0) &&
           isRegular(attributes);
}

// Opening alone does something to a device, and ends what the reader of a pipe waits for. What is
// not there, or to be new, is for the opening itself to tell.
bool mayBeOpened(const std::string& path, int flags)
{
    struct stat attributes = {};
    return (flags & O_EXCL) != 0 || ::stat(systemPath(path), &attributes) != 0 ||
           isRegular(attributes);
}

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
                                            mode_t permissions)
{
    if (!mayBeOpened(path, flags)) {
        return nullptr;
    }
    FileDescriptor descriptor = openDescriptor(path, flags, permissions);
    if (!LocalError::succeeded(descriptor.get() != -1) || !isRegular(descriptor)) {
        return nullptr;
    }
    return std::make_unique<LocalFile>(std::move(descriptor), path, mode, system);
}

/// As openFile(), and Changed for a symbolic link, which is where a file has been.
std::unique_ptr<StorageSystemFile>
openFileItself(const LocalFileSystem& system, const std::string& path,
               Utilities::Flags<StorageSystemFileOpenModeFlag> mode)
{
    auto file = openFile(system, path, storageSystemFileOpenModeToPosixMode(mode) | O_NOFOLLOW,
                         mode, modeOf(defaultFilePermissions));
    if (file == nullptr && isLink(path)) {
        fail(FailureCode::Changed, "a symbolic link has taken its place", path);
    }
    return file;
}

/// The set-ID and sticky bits of a directory, which say what becomes of its entries and are not
/// among the permissions that are asked for; none of anything else.
mode_t specialBitsOfDirectory(mode_t mode)
{
    constexpr mode_t specialBits = 07000;
    return S_ISDIR(mode) ? mode & specialBits : 0;
}

/// Of a directory that is open only as a place. For one that may not be read, the process's list of
/// descriptors must be mounted.
bool changeMode(int directory, mode_t mode)
{
    const FileDescriptor readable(retryInterrupted(
        [&] { return ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    const auto byPath = "/proc/self/fd/" + std::to_string(directory);
    return readable.get() != -1 ? ::fchmod(readable.get(), mode) == 0
                                : ::chmod(byPath.c_str(), mode) == 0;
}

// The access time stays as it is.
bool setModificationTime(const std::string& path, const timespec& time)
{
    timespec omitted = {};
    omitted.tv_nsec = UTIME_OMIT;
    const std::array<timespec, 2> times = {omitted, time};
    return ::utimensat(AT_FDCWD, systemPath(path), times.data(), AT_SYMLINK_NOFOLLOW) == 0;
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

// Only ever adds the new name where none stands, but both names stand for a moment.
bool renameByHardLink(const char* path, const char* newPath)
{
    if (::link(path, newPath) != 0) {
        return false;
    }
    if (::unlink(path) != 0) {
        static_cast<void>(::unlink(newPath));
        return false;
    }
    return true;
}

// For file systems that cannot refuse to replace: what appears at the new path between looking and
// renaming can be lost, where there are no hard links either.
bool renameWhereNothingStands(const char* path, const char* newPath)
{
    const auto attributes = readAttributes(AT_FDCWD, path);
    if (!attributes) {
        return false;
    }
    if (readAttributes(AT_FDCWD, newPath)) {
        errno = EEXIST;
    }
    if (errno != ENOENT) {
        return false;
    }
    if (!S_ISDIR(attributes->st_mode) && renameByHardLink(path, newPath)) {
        return true;
    }
    return !readAttributes(AT_FDCWD, newPath) && ::rename(path, newPath) == 0;
}

bool renameWithoutReplacing(const char* path, const char* newPath)
{
    if (::renameat2(AT_FDCWD, path, AT_FDCWD, newPath, RENAME_NOREPLACE) == 0) {
        return true;
    }
    const bool isUnknownFlag = errno == EINVAL || errno == ENOSYS;
    return isUnknownFlag && renameWhereNothingStands(path, newPath);
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

LocalFileSystem::LocalFileSystem()
{
    setDirectoryReader([this](const std::string& path) {
        LocalDirectory directory(path, listingLimit());
        auto entries = describeEntries(directory, path, NameFilter::all());
        return directory.isComplete() ? std::make_optional(std::move(entries)) : std::nullopt;
    });
    setStartDirectory([] { return currentDirectory(); });
    setReplacer([](const std::string& path, const std::string& newPath) {
        return LocalError::succeeded(::rename(systemPath(path), systemPath(newPath)) == 0);
    });
    setSelfOpener(
        [this](const std::string& path, Utilities::Flags<StorageSystemFileOpenModeFlag> mode) {
            return openFileItself(*this, path, mode);
        });
    setOwnerLooker([this](const std::string& path) { return lookAtOwned(path); });
    setLinkLooker([](const std::string& path) {
        struct stat target = {};
        return ::stat(systemPath(path), &target) == 0 && !S_ISREG(target.st_mode) &&
               !S_ISDIR(target.st_mode);
    });
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
    return openFile(*this, path, storageSystemFileOpenModeToPosixMode(mode), mode,
                    modeOf(permissions));
}

std::optional<StorageSystemFileInfo> LocalFileSystem::do_fileInfo(const std::string& path) const
{
    const auto attributes = attributesOf(path);
    if (!LocalError::answered(attributes.has_value())) {
        return std::nullopt;
    }
    return describe(*this, path, *attributes);
}

std::optional<StorageSystem::OwnedFileInfo>
LocalFileSystem::lookAtOwned(const std::string& path) const
{
    const auto attributes = attributesOf(path);
    if (!LocalError::answered(attributes.has_value())) {
        return std::nullopt;
    }
    return OwnedFileInfo{describe(*this, path, *attributes),
                         StorageSystemOwner{attributes->st_uid, attributes->st_gid},
                         (attributes->st_mode & S_ISVTX) != 0};
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
        ::chmod(systemPath(path), modeOf(permissions) | specialBitsOfDirectory(now.st_mode)) == 0);
}

// By a descriptor: a link that takes the directory's place must not lead to another.
bool LocalFileSystem::do_directorySetPermissions(
    const std::string& path, const Utilities::Flags<PosixFilePermissionFlag>& permissions) const
{
    const auto place = pathRemoveTrailingSlash(path);
    const FileDescriptor directory(retryInterrupted(
        [&] { return ::open(systemPath(place), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
    if (!LocalError::succeeded(directory.get() != -1)) {
        return false;
    }
    const auto now = attributesOfOpen(directory.get());
    const mode_t sticky = static_cast<mode_t>(permissions.raw()) & S_ISVTX;
    return LocalError::succeeded(
        now && changeMode(directory.get(),
                          modeOf(permissions) | sticky | specialBitsOfDirectory(now->st_mode)));
}

bool LocalFileSystem::do_fileSetModTime(const std::string& path,
                                        const StorageSystemTimePoint time) const
{
    const auto before = attributesOf(path);
    const timespec wanted = toTimespec(time);
    if (!LocalError::succeeded(before.has_value()) ||
        !LocalError::succeeded(setModificationTime(path, wanted))) {
        return false;
    }
    // A time beyond its range makes a file system take the nearest one that it knows, silently.
    const auto after = attributesOf(path);
    if (after && after->st_mtim.tv_sec == wanted.tv_sec) {
        return true;
    }
    static_cast<void>(setModificationTime(path, before->st_mtim));
    LocalError::note(ERANGE);
    return false;
}

std::optional<std::string> LocalFileSystem::do_fileSymbolicLinkTarget(const std::string& path) const
{
    std::string target(256, '\0');
    for (;;) {
        const ssize_t length = ::readlink(systemPath(path), target.data(), target.size());
        if (length < 0) {
            errno == EINVAL ? fail(FailureCode::NotALink) : failBySystem(errno);
            return std::nullopt;
        }
        const auto size = static_cast<std::size_t>(length);
        if (size < target.size()) {
            target.resize(size);
            return target;
        }
        // Full: there may be more.
        target.resize(target.size() * 2);
    }
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
    return LocalError::succeeded(renameWithoutReplacing(systemPath(path), systemPath(newPath)));
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
    return LocalError::succeeded(::mkdir(systemPath(path), modeOf(permissions)) == 0);
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
