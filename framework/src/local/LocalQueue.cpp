#include "local/LocalQueue.h"

#include "SystemCall.h"
#include "local/LocalAttributes.h"
#include "local/LocalCalls.h"
#include "local/LocalDirectory.h"
#include "local/LocalError.h"
#include "path/PathText.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/OpenMode.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FileSystem {

namespace {

constexpr mode_t specialBits = 07000;
constexpr mode_t allBits = 07777;

constexpr std::uint64_t largestSize = std::numeric_limits<off_t>::max();

// The most that one call moves on Linux.
constexpr std::uint64_t largestStep = 0x7ffff000;

// How many entries are handed over at a time.
constexpr std::size_t portion = 1'000;

std::optional<StorageSystemAttributes> told(const std::optional<struct stat>& now)
{
    return LocalError::answered(now.has_value()) ? std::make_optional(toAttributes(*now))
                                                 : std::nullopt;
}

std::optional<struct stat> statusOf(const ResolvedPath& place, int flags)
{
    struct stat now = {};
    return ::fstatat(place.descriptor(), place.path(), &now, flags) == 0 ? std::make_optional(now)
                                                                         : std::nullopt;
}

/// The mode that an entry is to have.
mode_t wantedMode(const StorageSystemAttributes& wanted, const struct stat& now)
{
    const mode_t special = wanted.specialBits
                               ? static_cast<mode_t>(*wanted.specialBits) & specialBits
                               : LocalCalls::specialBitsOfDirectory(now.st_mode);
    return LocalCalls::modeOf(*wanted.permissions) | special;
}

bool isOf(const struct stat& entry, const StorageSystemOwner& owner)
{
    return entry.st_uid == owner.user && entry.st_gid == owner.group;
}

bool setMode(int file, const StorageSystemAttributes& wanted)
{
    // An owner that was set before has taken bits away.
    const auto now = attributesOfOpen(file);
    const mode_t mode = now ? wantedMode(wanted, *now) : 0;
    return LocalError::succeeded(now &&
                                 ((now->st_mode & allBits) == mode || ::fchmod(file, mode) == 0));
}

bool setOwner(int file, const StorageSystemOwner& owner)
{
    const auto now = attributesOfOpen(file);
    return LocalError::succeeded(
        now && (isOf(*now, owner) || ::fchown(file, owner.user, owner.group) == 0));
}

bool setModTime(int file, StorageSystemTimePoint time)
{
    timespec omitted = {};
    omitted.tv_nsec = UTIME_OMIT;
    const std::array<timespec, 2> times = {omitted, toTimespec(time)};
    if (!LocalError::succeeded(::futimens(file, times.data()) == 0)) {
        return false;
    }
    // A time beyond its range makes a file system take the nearest one that it knows, silently.
    const auto now = attributesOfOpen(file);
    return LocalError::succeeded(now.has_value()) &&
           (now->st_mtim.tv_sec == times[1].tv_sec || fail(FailureCode::NotKept));
}

bool setSize(int file, std::uint64_t size)
{
    return size <= largestSize
               ? LocalError::succeeded(::ftruncate(file, static_cast<off_t>(size)) == 0)
               : fail(FailureCode::TooLarge);
}

/// Entries of a directory, as far as they are still there.
std::optional<StorageSystemEntry> describe(const LocalDirectory& directory, const dirent& entry)
{
    const auto now = readAttributes(directory.descriptor(), entry.d_name);
    if (now) {
        return StorageSystemEntry{entry.d_name, toAttributes(*now)};
    }
    if (errno == ENOENT) {
        return std::nullopt;
    }
    // In a directory that may be read but not entered the kind is all there is to know.
    StorageSystemAttributes attributes;
    const auto type = directory.typeOf(entry);
    attributes.type =
        isSymbolicLink(type) ? Utilities::Flags(StorageSystemFileTypeFlag::SymbolicLink) : type;
    return StorageSystemEntry{entry.d_name, attributes};
}

} // namespace

LocalQueue::LocalQueue(const LocalFileSystem& system,
                       std::shared_ptr<const std::atomic<bool>> isAlive)
    : system_(system)
    , isAlive_(std::move(isAlive))
{}

LocalQueue::~LocalQueue() = default;

void LocalQueue::do_confine(const std::string& directory)
{
    places_.confine(directory);
}

bool LocalQueue::isThere() const
{
    return *isAlive_;
}

std::string LocalQueue::pathOf(File file) const
{
    return files_.pathOf(file);
}

std::optional<StorageSystemQueue::File> LocalQueue::openNow(const std::string& path, OpenMode mode,
                                                            Permissions permissions)
{
    return openAt(path, storageSystemFileOpenModeToPosixMode(mode),
                  LocalCalls::modeOf(permissions));
}

std::optional<StorageSystemQueue::File> LocalQueue::openItselfNow(const std::string& path,
                                                                  OpenMode mode)
{
    constexpr int making = O_CREAT | O_EXCL | O_TRUNC;
    return openAt(path, (storageSystemFileOpenModeToPosixMode(mode) & ~making) | O_NOFOLLOW, 0);
}

std::optional<StorageSystemQueue::File> LocalQueue::openAt(const std::string& path, int flags,
                                                           mode_t permissions)
{
    const auto place = places_.find(path);
    if (!place) {
        return std::nullopt;
    }
    const int all = place->isConfined ? flags | O_NOFOLLOW : flags;
    auto file = places_.openWithRoom(
        [&] { return LocalCalls::openFile(place->descriptor(), place->path(), all, permissions); });
    return file.get() != -1 ? std::make_optional(files_.add(path, std::move(file))) : std::nullopt;
}

std::optional<std::uint64_t> LocalQueue::readNow(File file, std::uint64_t offset, char* buffer,
                                                 std::uint64_t size)
{
    const auto* const open = files_.find(file);
    std::uint64_t done = 0;
    while (open != nullptr && done < size) {
        const ssize_t count = retryInterrupted([&] {
            return ::pread(open->get(), buffer + done, std::min(size - done, largestStep),
                           static_cast<off_t>(offset + done));
        });
        if (count <= 0) {
            return LocalError::succeeded(count == 0) ? std::make_optional(done) : std::nullopt;
        }
        done += static_cast<std::uint64_t>(count);
    }
    return open != nullptr ? std::make_optional(done) : std::nullopt;
}

bool LocalQueue::writeNow(File file, std::uint64_t offset, const char* bytes, std::uint64_t size)
{
    const auto* const open = files_.find(file);
    std::uint64_t done = 0;
    while (open != nullptr && done < size) {
        const ssize_t count = retryInterrupted([&] {
            return ::pwrite(open->get(), bytes + done, std::min(size - done, largestStep),
                            static_cast<off_t>(offset + done));
        });
        if (count <= 0) {
            LocalError::note(count == 0 ? EIO : errno);
            return false;
        }
        done += static_cast<std::uint64_t>(count);
    }
    return open != nullptr;
}

std::optional<StorageSystemAttributes> LocalQueue::lookNow(File file)
{
    const auto* const open = files_.find(file);
    return open != nullptr ? told(attributesOfOpen(open->get())) : std::nullopt;
}

bool LocalQueue::setOfFileNow(File file, const Attributes& attributes)
{
    const auto* const open = files_.find(file);
    return open != nullptr && (!attributes.size || setSize(open->get(), *attributes.size)) &&
           (!attributes.owner || setOwner(open->get(), *attributes.owner)) &&
           (!attributes.permissions || setMode(open->get(), attributes)) &&
           (!attributes.modTime || setModTime(open->get(), *attributes.modTime));
}

// Some systems find out only now that they could not write.
bool LocalQueue::closeNow(File file)
{
    auto* const open = files_.find(file);
    if (open == nullptr) {
        return false;
    }
    // Not again after EINTR: the descriptor is gone then, too.
    const bool isClosed = LocalError::succeeded(::close(open->release()) == 0 || errno == EINTR);
    files_.remove(file);
    return isClosed;
}

std::optional<StorageSystemAttributes> LocalQueue::lookUpNow(const std::string& path)
{
    const auto place = places_.find(path);
    return place ? told(statusOf(*place, AT_SYMLINK_NOFOLLOW)) : std::nullopt;
}

std::optional<StorageSystemAttributes> LocalQueue::lookThroughNow(const std::string& path)
{
    const auto place = places_.find(path);
    return place ? told(statusOf(*place, 0)) : std::nullopt;
}

bool LocalQueue::listNow(const std::string& path, const EntryReceiver& receiver)
{
    const auto place = places_.find(path);
    if (!place) {
        return false;
    }
    const int follow = place->isConfined ? O_NOFOLLOW : 0;
    auto opened = places_.openWithRoom([&] {
        return Posix::FileDescriptor(retryInterrupted([&] {
            return ::openat(place->descriptor(), place->path(),
                            O_RDONLY | O_DIRECTORY | O_CLOEXEC | follow);
        }));
    });
    LocalDirectory directory(std::move(opened), system_.listingLimit());
    std::vector<StorageSystemEntry> entries;
    while (const dirent* const next = directory.next()) {
        if (auto entry = describe(directory, *next)) {
            entries.push_back(*std::move(entry));
        }
        if (entries.size() == portion) {
            if (!receiver(entries)) {
                return true;
            }
            entries.clear();
        }
    }
    static_cast<void>(entries.empty() || receiver(entries));
    return directory.isComplete();
}

bool LocalQueue::makeDirectoryNow(const std::string& path, Permissions permissions)
{
    const auto place = places_.find(path);
    return place && LocalError::succeeded(::mkdirat(place->descriptor(), place->path(),
                                                    LocalCalls::modeOf(permissions)) == 0);
}

bool LocalQueue::removeFileNow(const std::string& path)
{
    const auto place = places_.find(path);
    return place && LocalError::succeeded(::unlinkat(place->descriptor(), place->path(), 0) == 0);
}

bool LocalQueue::removeDirectoryNow(const std::string& path)
{
    const auto place = places_.find(path);
    places_.forget(path);
    return place &&
           LocalError::succeeded(::unlinkat(place->descriptor(), place->path(), AT_REMOVEDIR) == 0);
}

bool LocalQueue::renameNow(const std::string& path, const std::string& newPath)
{
    const auto place = places_.find(path);
    const auto newPlace = place ? places_.find(newPath) : std::nullopt;
    places_.forget(path);
    return newPlace && LocalCalls::rename(place->descriptor(), place->path(),
                                          newPlace->descriptor(), newPlace->path());
}

bool LocalQueue::replaceNow(const std::string& path, const std::string& newPath)
{
    const auto place = places_.find(path);
    const auto newPlace = place ? places_.find(newPath) : std::nullopt;
    if (!newPlace) {
        return false;
    }
    const auto now = statusOf(*place, AT_SYMLINK_NOFOLLOW);
    if (now && S_ISDIR(now->st_mode)) {
        return fail(FailureCode::IsDirectory);
    }
    return LocalError::succeeded(::renameat(place->descriptor(), place->path(),
                                            newPlace->descriptor(), newPlace->path()) == 0);
}

bool LocalQueue::makeLinkNow(const std::string& target, const std::string& path)
{
    const auto place = places_.find(path);
    return place && LocalError::succeeded(
                        ::symlinkat(systemPath(target), place->descriptor(), place->path()) == 0);
}

std::optional<std::string> LocalQueue::readLinkNow(const std::string& path)
{
    const auto place = places_.find(path);
    return place ? LocalCalls::readLink(place->descriptor(), place->path()) : std::nullopt;
}

// What is confined is not followed either.
bool LocalQueue::setOfPathNow(const std::string& path, const Attributes& attributes)
{
    if (attributes.size) {
        return fail(FailureCode::Unsupported, "a size can be set of an open file only");
    }
    const auto place = places_.find(path);
    if (!place) {
        return false;
    }
    const int follow = place->isConfined ? AT_SYMLINK_NOFOLLOW : 0;
    const auto& owner = attributes.owner;
    if (owner && !LocalError::succeeded(::fchownat(place->descriptor(), place->path(), owner->user,
                                                   owner->group, follow) == 0)) {
        return false;
    }
    const auto now = statusOf(*place, follow);
    const auto isSet = [&] {
        return now && ::fchmodat(place->descriptor(), place->path(), wantedMode(attributes, *now),
                                 follow) == 0;
    };
    return (!attributes.permissions || LocalError::succeeded(isSet())) &&
           (!attributes.modTime ||
            LocalCalls::setModTime(place->descriptor(), place->path(), *attributes.modTime));
}

std::optional<StorageSystemStorageInfo> LocalQueue::storageInfoNow(const std::string& path)
{
    return system_.fileStorageInfo(path);
}

} // namespace FileSystem
