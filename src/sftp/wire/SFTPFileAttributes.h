#pragma once

#include <cstdint>
#include <optional>

namespace Tarnis {

struct SFTPFileOwner
{
    std::uint32_t user;
    std::uint32_t group;
};

/// Seconds since 1970.
struct SFTPFileTimes
{
    std::uint32_t access;
    std::uint32_t modification;
};

/// Attributes as version 3 has them. Those that are not there are unknown, or to be left alone.
struct SFTPFileAttributes
{
    std::optional<std::uint64_t> size;
    std::optional<SFTPFileOwner> owner;
    std::optional<std::uint32_t> permissions; ///< From a server with the bits of the kind of file.
    std::optional<SFTPFileTimes> times;
};

} // namespace Tarnis
