#pragma once

#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Tarnis/SSHDefaultDeleter.h>
#include <Utilities/Flags.h>

#include <libssh/sftp.h>

#include <cstdint>
#include <memory>

namespace Tarnis {

using SFTPAttributes =
    std::unique_ptr<sftp_attributes_struct, ssh_default_deleter<sftp_attributes_struct>>;

/// The bits of a mode that say what kind of thing it is of, all together, and two of their values.
inline constexpr std::uint32_t kindBits = 0xF000;
inline constexpr std::uint32_t directoryKind = 0x4000;
inline constexpr std::uint32_t regularKind = 0x8000;
inline constexpr std::uint32_t linkKind = 0xA000;

/// The bit of a directory's mode that lets only owners remove what is in it.
inline constexpr std::uint32_t stickyBit = 0x200;

/// A moment as SFTP's attributes hold it.
struct SFTPTime
{
    std::uint64_t seconds;     ///< Since 1970; two's complement before.
    std::uint32_t nanoseconds; ///< With the sign of the seconds, so two's complement before 1970.
};

/// Whether the mode is a directory's, by the bits that are tested all over; a socket's and a block
/// device's are too.
bool hasDirectoryBit(std::uint32_t mode) noexcept;

/// Whether the server told the permissions, and the nine bits are these; a sticky bit that is
/// wanted is there too.
bool hasPermissions(const sftp_attributes_struct& attributes,
                    Utilities::Flags<FileSystem::PosixFilePermissionFlag> wanted) noexcept;

/// Whether the mode is a symbolic link's and nothing else's.
bool isLinkMode(std::uint32_t mode) noexcept;

/// The kind of what has this mode. The tests are of single bits: a link is also a regular file, a
/// socket both a file and a directory, a block device a directory; a pipe and a character device
/// are nothing.
Utilities::Flags<FileSystem::StorageSystemFileTypeFlag> fileTypeOf(std::uint32_t mode) noexcept;

/// The modification time, to 100 ns.
FileSystem::StorageSystemTimePoint
modificationTimeOf(const sftp_attributes_struct& attributes) noexcept;

/// Fills in the kind, the size as the server says it, the time and the permissions.
void describe(const sftp_attributes_struct& attributes,
              FileSystem::StorageSystemFileInfo& info) noexcept;

/// Splits a time; parts of 100 ns that SFTP cannot hold there are none.
SFTPTime sftpTimeOf(FileSystem::StorageSystemTimePoint time) noexcept;

} // namespace Tarnis
