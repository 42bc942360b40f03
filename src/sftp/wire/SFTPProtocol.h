#pragma once

#include <cstdint>

namespace Tarnis {

// The numbers of SFTP's version 3. What comes from a server may be any other one of the same size.

enum class SFTPPacketType : std::uint8_t
{
    Init = 1,
    Version = 2,
    Open = 3,
    Close = 4,
    Read = 5,
    Write = 6,
    Lstat = 7,
    Fstat = 8,
    Setstat = 9,
    Fsetstat = 10,
    Opendir = 11,
    Readdir = 12,
    Remove = 13,
    Mkdir = 14,
    Rmdir = 15,
    Realpath = 16,
    Stat = 17,
    Rename = 18,
    Readlink = 19,
    Symlink = 20,
    Status = 101,
    Handle = 102,
    Data = 103,
    Name = 104,
    Attributes = 105,
    Extended = 200,
    ExtendedReply = 201,
};

/// Version 3 ends with OperationUnsupported; some servers send the later ones all the same.
enum class SFTPStatusCode : std::uint32_t
{
    Ok,
    EndOfFile,
    NoSuchFile,
    PermissionDenied,
    Failure,
    BadMessage,
    NoConnection,
    ConnectionLost,
    OperationUnsupported,
    InvalidHandle,
    NoSuchPath,
    FileAlreadyExists,
    WriteProtect,
    NoMedia,
    NoSpaceOnFileSystem,
    QuotaExceeded,
    UnknownPrincipal,
    LockConflict,
    DirectoryNotEmpty,
    NotADirectory,
    InvalidFileName,
    LinkLoop,
    CannotDelete,
    InvalidParameter,
    FileIsADirectory,
    ByteRangeLockConflict,
    ByteRangeLockRefused,
    DeletePending,
};

enum class SFTPOpenFlag : std::uint32_t
{
    Read = 0x01,
    Write = 0x02,
    Append = 0x04,
    Create = 0x08,
    Truncate = 0x10,
    Exclusive = 0x20, ///< With Create: fails where something is there.
};

/// Which fields attributes have.
enum class SFTPAttributeFlag : std::uint32_t
{
    Size = 0x01,
    Owner = 0x02,
    Permissions = 0x04,
    Times = 0x08,
    Extended = 0x80000000,
};

inline constexpr std::uint32_t sftpVersion = 3;

} // namespace Tarnis
