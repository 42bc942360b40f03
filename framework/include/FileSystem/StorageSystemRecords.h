#pragma once

#include <FileSystem/StorageSystemFlags.h>
#include <Utilities/Flags.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <ratio>
#include <string>

namespace FileSystem {

/// A moment of the system clock in ticks of 100 ns since 1970-01-01 UTC.
using StorageSystemTimePoint =
    std::chrono::time_point<std::chrono::system_clock,
                            std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>>;

/// Told by long work how far it is: bytes done, then bytes in all. False stops the work. Called on
/// the thread that does the work; an exception that it throws stops the work too and is passed on.
/// What it does on storage systems are operations of its own: Failure::last() is about these alone
/// while it runs, and none of them is the failure of the work.
using StorageSystemProgress = std::function<bool(std::uint64_t, std::uint64_t)>;

/// Whose an entry of a storage system is, as the system numbers its users and their groups.
struct StorageSystemOwner
{
    std::uint32_t user = 0;
    std::uint32_t group = 0;
};

constexpr bool operator==(const StorageSystemOwner& left, const StorageSystemOwner& right) noexcept
{
    return left.user == right.user && left.group == right.group;
}

constexpr bool operator!=(const StorageSystemOwner& left, const StorageSystemOwner& right) noexcept
{
    return !(left == right);
}

/// What is known of a path. All strings are bytes, in no particular encoding.
struct StorageSystemFileInfo
{
    std::string name;              ///< Last component of the path.
    std::string fileId;            ///< The path, as the caller gave it.
    std::string parentDirectoryId; ///< The path without its last component.
    Utilities::Flags<StorageSystemFileTypeFlag> type;
    std::uint64_t size = 0; ///< Bytes; 0 for a directory, but in a listing what the system said.
    StorageSystemTimePoint modTime;
    Utilities::Flags<PosixFilePermissionFlag> permissions; ///< The nine permission bits.
};

/// One entry of a directory.
struct StorageSystemDirectoryInfo
{
    std::string name;              ///< The entry's name.
    std::string fileId;            ///< The directory's path as given, a slash, the name.
    std::string parentDirectoryId; ///< The directory's path as given.
    Utilities::Flags<StorageSystemFileTypeFlag> type;
};

/// Room on the volume that holds a path, in bytes.
struct StorageSystemStorageInfo
{
    std::uint64_t free = 0;      ///< Free, also what is kept back for the superuser.
    std::uint64_t available = 0; ///< Free for an unprivileged user.
    std::uint64_t capacity = 0;  ///< In all.
};

/// Everything that can be told of a path in one record.
struct FileMetaData
{
    StorageSystemFileInfo info;
    std::string displayPath;               ///< The path as a person wants to see it.
    std::string extension;                 ///< Of the name, without the dot; empty for none.
    std::optional<std::string> linkTarget; ///< Of a symbolic link, as it stands in the link.
};

} // namespace FileSystem
