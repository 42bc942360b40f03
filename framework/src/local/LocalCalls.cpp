#include "local/LocalCalls.h"

#include "SystemCall.h"
#include "local/LocalAttributes.h"
#include "local/LocalError.h"

#include <FileSystem/FailureScope.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace FileSystem::LocalCalls {

namespace {

constexpr mode_t permissionBits = 0777;

bool isRegular(const struct stat& attributes)
{
    if (!S_ISREG(attributes.st_mode)) {
        LocalError::note(S_ISDIR(attributes.st_mode) ? EISDIR : EINVAL);
    }
    return S_ISREG(attributes.st_mode) || S_ISDIR(attributes.st_mode)
               ? S_ISREG(attributes.st_mode)
               : fail(FailureCode::NotCopyable);
}

bool isRegular(const Posix::FileDescriptor& descriptor)
{
    const auto attributes = attributesOfOpen(descriptor.get());
    return LocalError::succeeded(attributes.has_value()) && isRegular(*attributes);
}

// What is not there, or to be new, is for the opening itself to tell.
bool mayBeOpened(int directory, const char* path, int flags)
{
    struct stat attributes = {};
    const int follow = (flags & O_NOFOLLOW) != 0 ? AT_SYMLINK_NOFOLLOW : 0;
    if ((flags & O_EXCL) != 0 || ::fstatat(directory, path, &attributes, follow) != 0) {
        return true;
    }
    if (S_ISLNK(attributes.st_mode)) {
        LocalError::note(ELOOP);
        return fail(FailureCode::Changed, "a symbolic link has taken its place");
    }
    return isRegular(attributes);
}

// Only ever adds the new name where none stands, but both names stand for a moment.
bool renameByHardLink(int directory, const char* path, int newDirectory, const char* newPath)
{
    if (::linkat(directory, path, newDirectory, newPath, 0) != 0) {
        return false;
    }
    // Where others have removed the old name meanwhile, the new one is the only one.
    if (::unlinkat(directory, path, 0) != 0 && errno != ENOENT) {
        static_cast<void>(::unlinkat(newDirectory, newPath, 0));
        return false;
    }
    return true;
}

// For file systems that cannot refuse to replace: what appears at the new path between looking and
// renaming can be lost, where there are no hard links either.
bool renameWhereNothingStands(int directory, const char* path, int newDirectory,
                              const char* newPath)
{
    const auto attributes = readAttributes(directory, path);
    if (!attributes) {
        return false;
    }
    if (readAttributes(newDirectory, newPath)) {
        errno = EEXIST;
    }
    if (errno != ENOENT) {
        return false;
    }
    if (!S_ISDIR(attributes->st_mode) && renameByHardLink(directory, path, newDirectory, newPath)) {
        return true;
    }
    return !readAttributes(newDirectory, newPath) &&
           ::renameat(directory, path, newDirectory, newPath) == 0;
}

bool renameWithoutReplacing(int directory, const char* path, int newDirectory, const char* newPath)
{
    if (::renameat2(directory, path, newDirectory, newPath, RENAME_NOREPLACE) == 0) {
        return true;
    }
    const bool isUnknownFlag = errno == EINVAL || errno == ENOSYS;
    return isUnknownFlag && renameWhereNothingStands(directory, path, newDirectory, newPath);
}

// The access time stays as it is.
bool setModificationTime(int directory, const char* path, const timespec& time)
{
    timespec omitted = {};
    omitted.tv_nsec = UTIME_OMIT;
    const std::array<timespec, 2> times = {omitted, time};
    return ::utimensat(directory, path, times.data(), AT_SYMLINK_NOFOLLOW) == 0;
}

} // namespace

mode_t modeOf(Utilities::Flags<PosixFilePermissionFlag> permissions) noexcept
{
    return static_cast<mode_t>(permissions.raw()) & permissionBits;
}

mode_t specialBitsOfDirectory(mode_t mode) noexcept
{
    constexpr mode_t specialBits = 07000;
    return S_ISDIR(mode) ? mode & specialBits : 0;
}

// Without O_NONBLOCK a pipe that nobody writes to would hold the call up for ever, and without
// O_NOCTTY a terminal could become the process's own.
Posix::FileDescriptor openFile(int directory, const char* path, int flags, mode_t permissions)
{
    Posix::FileDescriptor none(-1);
    if (!mayBeOpened(directory, path, flags)) {
        return none;
    }
    const int all = flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    Posix::FileDescriptor file(
        retryInterrupted([&] { return ::openat(directory, path, all, permissions); }));
    return LocalError::succeeded(file.get() != -1) && isRegular(file) ? std::move(file)
                                                                      : std::move(none);
}

bool rename(int directory, const char* path, int newDirectory, const char* newPath)
{
    return LocalError::succeeded(renameWithoutReplacing(directory, path, newDirectory, newPath));
}

std::optional<std::string> readLink(int directory, const char* path)
{
    std::string target(256, '\0');
    for (;;) {
        const ssize_t length = ::readlinkat(directory, path, target.data(), target.size());
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

bool setModTime(int directory, const char* path, StorageSystemTimePoint time)
{
    const auto before = readAttributes(directory, path);
    const timespec wanted = toTimespec(time);
    if (!LocalError::succeeded(before.has_value()) ||
        !LocalError::succeeded(setModificationTime(directory, path, wanted))) {
        return false;
    }
    // A time beyond its range makes a file system take the nearest one that it knows, silently.
    const auto after = readAttributes(directory, path);
    if (after && after->st_mtim.tv_sec == wanted.tv_sec) {
        return true;
    }
    static_cast<void>(setModificationTime(directory, path, before->st_mtim));
    LocalError::note(ERANGE);
    return false;
}

bool isOwnFile(const std::string& path)
{
    struct stat status = {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_uid == ::geteuid() && status.st_nlink == 1;
}

} // namespace FileSystem::LocalCalls
