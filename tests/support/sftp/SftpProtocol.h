#pragma once

#include <cstdint>

// The numbers of the SSH file transfer protocol, version 3.

namespace TarnisTest {

/// What a packet is.
enum class SftpPacket : std::uint8_t
{
    Any = 0, ///< no packet: stands for every one in scripts and counts
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
    Attrs = 105,
    Extended = 200,
    ExtendedReply = 201,
};

enum class SftpStatus : std::uint32_t
{
    Ok = 0,
    Eof = 1,
    NoSuchFile = 2,
    PermissionDenied = 3,
    Failure = 4,
    BadMessage = 5,
    NoConnection = 6,
    ConnectionLost = 7,
    OpUnsupported = 8,
};

/// Which attributes follow in an attribute block.
namespace SftpAttribute {

inline constexpr std::uint32_t kSize = 0x1;
inline constexpr std::uint32_t kOwner = 0x2;
inline constexpr std::uint32_t kPermissions = 0x4;
inline constexpr std::uint32_t kTimes = 0x8;
inline constexpr std::uint32_t kExtended = 0x80000000;

} // namespace SftpAttribute

namespace SftpOpen {

inline constexpr std::uint32_t kRead = 0x01;
inline constexpr std::uint32_t kWrite = 0x02;
inline constexpr std::uint32_t kAppend = 0x04;
inline constexpr std::uint32_t kCreate = 0x08;
inline constexpr std::uint32_t kTruncate = 0x10;
inline constexpr std::uint32_t kExclusive = 0x20;

} // namespace SftpOpen

} // namespace TarnisTest
