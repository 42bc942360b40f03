#pragma once

#include "sftp/wire/SFTPExtension.h"
#include "sftp/wire/SFTPFileAttributes.h"
#include "sftp/wire/SFTPProtocol.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace Tarnis {

// What replies say. Each function takes the fields of one kind of reply (SFTPPacket::fields); empty
// means that they are malformed: they end too early, or a length or a count in them lies. What
// follows the last field does not matter, as some servers pad. All texts lie in the bytes that were
// given.

struct SFTPVersionReply
{
    std::uint32_t version = 0;
    std::vector<SFTPExtension> extensions;

    bool offers(const SFTPExtension& extension) const noexcept;
};

struct SFTPStatusReply
{
    SFTPStatusCode code = SFTPStatusCode::Failure; ///< Any number that the server sent.
    std::string_view text;                         ///< Empty also where there was none.
};

/// One entry of a list of names.
struct SFTPName
{
    std::string_view name;
    std::string_view longName; ///< A line for people.
    SFTPFileAttributes attributes;
};

/// The figures of statvfs@openssh.com.
struct SFTPVolumeFigures
{
    std::uint64_t blockSize = 0;
    std::uint64_t fragmentSize = 0; ///< What the numbers of blocks count.
    std::uint64_t blocks = 0;
    std::uint64_t freeBlocks = 0;
    std::uint64_t availableBlocks = 0; ///< Free ones for others than the superuser.
    std::uint64_t files = 0;
    std::uint64_t freeFiles = 0;
    std::uint64_t availableFiles = 0;
    std::uint64_t fileSystemId = 0;
    std::uint64_t flags = 0; ///< 1: read only, 2: no set-user-id.
    std::uint64_t longestName = 0;
};

/// The figures of limits@openssh.com; 0 is "not limited", or "not told".
struct SFTPLimits
{
    std::uint64_t packetSize = 0;
    std::uint64_t readSize = 0;
    std::uint64_t writeSize = 0;
    std::uint64_t openHandles = 0;
};

/// A handle is of 1 to so many bytes.
inline constexpr std::uint32_t longestSftpHandle = 256;

std::optional<SFTPVersionReply> decodeVersion(std::string_view fields);
std::optional<SFTPStatusReply> decodeStatus(std::string_view fields) noexcept;
std::optional<std::string_view> decodeHandle(std::string_view fields) noexcept;
std::optional<std::string_view> decodeData(std::string_view fields) noexcept;
/// Takes as many names as the reply says, and no fewer; there may be none at all.
std::optional<std::vector<SFTPName>> decodeNames(std::string_view fields);
std::optional<SFTPFileAttributes> decodeAttributes(std::string_view fields) noexcept;
std::optional<SFTPVolumeFigures> decodeVolumeFigures(std::string_view fields) noexcept;
std::optional<SFTPLimits> decodeLimits(std::string_view fields) noexcept;

} // namespace Tarnis
