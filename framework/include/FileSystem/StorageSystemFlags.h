#pragma once

#include <Utilities/Flags.h>

#include <cstdint>

namespace FileSystem {

/// What stands at a path. A symbolic link has the bits SymbolicLink and Regular, whatever it points
/// to. A pipe, a socket or a device has none of the bits that make it a file, a directory or a link
/// alone: see isRegularFile(), isDirectory() and isSymbolicLink(). With one exception: over SFTP, a
/// block device passes for a directory, with whose type bit it is sent.
enum class StorageSystemFileTypeFlag : std::uint32_t
{
    Regular = 1,
    Directory = 2,
    SymbolicLink = 16,
};

/// The permission bits of POSIX, with POSIX's values. A set's raw value is a mode.
enum class PosixFilePermissionFlag : std::uint32_t
{
    OwnerRead = 0400,
    OwnerWrite = 0200,
    OwnerExecute = 0100,
    GroupRead = 040,
    GroupWrite = 020,
    GroupExecute = 010,
    OthersRead = 04,
    OthersWrite = 02,
    OthersExecute = 01,
};

/// How a file is opened.
enum class StorageSystemFileOpenModeFlag : std::uint32_t
{
    Read = 1,
    Write = 2,
    Append = 4,     ///< Every write goes to the end of the file, and leaves the position there;
                    ///< before the first one it is at the start.
    Create = 8,     ///< A missing file is created.
    Truncate = 16,  ///< What the file held is dropped.
    Exclusive = 32, ///< With Create: fails where something stands already, a link included.
};

/// How the filter string of a listing is meant. A filter applies to a whole name.
enum class StorageSystemDirectoryFilterType : std::uint32_t
{
    /// A pattern as shells know them; see DirectoryListing::createSearchFilter.
    SearchPattern = 1,
    /// An ECMAScript regular expression.
    RegularExpression = 2,
};

/// Kind of a storage system.
enum class StorageSystemType : std::uint32_t
{
    None = 0, ///< What an open file gives for a storage system that is gone.
    Local = 1,
    SFTP = 2,
    Memory = 3,
};

/// What a copy does beyond copying bytes.
enum class StorageSystemCopyOptionFlag : std::uint32_t
{
    None = 0,
    /// The target gets the source's nine permission bits; a directory of a tree where others than
    /// its owner may write also the sticky bit, as far as both systems tell of it, and one that is
    /// there keeps its own. Without it, a new file or directory gets the nine bits less the umask,
    /// and a file that is replaced keeps its own.
    PreservePermissions = 1,
    /// The target gets the source's modification time, as exactly as the target's system keeps it.
    PreserveModTime = 2,
    /// Fails where something stands at the target's path. Without it, a file or a link there is
    /// replaced; a directory, a pipe, a socket or a device never is, nor a link that leads to one
    /// of the last three.
    FailIfExists = 4,
    /// A directory is copied with everything below it, into a target directory that may exist.
    /// Without it, copying a directory fails.
    Recursive = 8,
    /// The bytes go into the file that stands at the target's path, or into a new one of that name,
    /// and not to a hidden name beside it: for a file that may be written in a directory that may
    /// not (where without this option a copy fails with FailureCode::CannotReplace), and for
    /// systems that do not rename. Not atomic: others see the file while it is written, and a copy
    /// that fails leaves a file that is neither the old one nor the new one; a new file is removed
    /// again. A symbolic link is not written through but replaced, as without this option. The
    /// source itself, by whatever path, is not written over: that fails. Two names of one file on a
    /// server cannot be told from two files; nothing is lost by that but where the server empties a
    /// file whenever it is opened for writing. With PreservePermissions what stands there is closed
    /// to those who may not read the source before the first byte, and where that is refused
    /// nothing is written.
    InPlace = 16,
    /// What is to be preserved and cannot be is no reason to give the copy up: it goes on to its
    /// end and fails then, with FailureCode::NotKept, the entry and what was not kept (of several
    /// the first, and their number). A failure with any other code is as without this option, as
    /// where a file that is to be written in place stays open to those who may not read the source.
    /// So is told a file that has been replaced in steps and that the system does not remove
    /// afterwards, with FailureCode::NotRemoved where nothing else is to be told: the text says
    /// under which hidden name it is left. Without this option such a copy is a success and nothing
    /// tells of that.
    PreserveBestEffort = 32,
};

constexpr Utilities::Flags<StorageSystemFileTypeFlag>
operator|(StorageSystemFileTypeFlag left, StorageSystemFileTypeFlag right) noexcept
{
    return Utilities::Flags<StorageSystemFileTypeFlag>(left) | right;
}

constexpr Utilities::Flags<PosixFilePermissionFlag>
operator|(PosixFilePermissionFlag left, PosixFilePermissionFlag right) noexcept
{
    return Utilities::Flags<PosixFilePermissionFlag>(left) | right;
}

constexpr Utilities::Flags<StorageSystemFileOpenModeFlag>
operator|(StorageSystemFileOpenModeFlag left, StorageSystemFileOpenModeFlag right) noexcept
{
    return Utilities::Flags<StorageSystemFileOpenModeFlag>(left) | right;
}

constexpr Utilities::Flags<StorageSystemCopyOptionFlag>
operator|(StorageSystemCopyOptionFlag left, StorageSystemCopyOptionFlag right) noexcept
{
    return Utilities::Flags<StorageSystemCopyOptionFlag>(left) | right;
}

/// A symbolic link, whatever it points to.
constexpr bool isSymbolicLink(Utilities::Flags<StorageSystemFileTypeFlag> type) noexcept
{
    return type.has(StorageSystemFileTypeFlag::SymbolicLink);
}

/// A directory, and no link to one.
constexpr bool isDirectory(Utilities::Flags<StorageSystemFileTypeFlag> type) noexcept
{
    return type == StorageSystemFileTypeFlag::Directory;
}

/// A regular file, and no link to one.
constexpr bool isRegularFile(Utilities::Flags<StorageSystemFileTypeFlag> type) noexcept
{
    return type == StorageSystemFileTypeFlag::Regular;
}

/// The permissions without what the group may and others may not: for a file that has got into
/// another group.
constexpr Utilities::Flags<PosixFilePermissionFlag>
withoutOwnOfGroup(Utilities::Flags<PosixFilePermissionFlag> permissions) noexcept
{
    const auto bits = permissions.raw();
    return Utilities::Flags<PosixFilePermissionFlag>(bits & (0707U | (bits & 07U) << 3U));
}

/// The permissions of new files and directories, before the umask of whoever creates them.
constexpr Utilities::Flags<PosixFilePermissionFlag> defaultFilePermissions{0666U};
constexpr Utilities::Flags<PosixFilePermissionFlag> defaultDirectoryPermissions{0777U};

} // namespace FileSystem
