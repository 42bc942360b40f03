#include "sftp/wire/SFTPPacketReader.h"

namespace Tarnis {

std::uint8_t SFTPPacketReader::number8() noexcept
{
    return static_cast<std::uint8_t>(number(sizeof(std::uint8_t)));
}

std::uint32_t SFTPPacketReader::number32() noexcept
{
    return static_cast<std::uint32_t>(number(sizeof(std::uint32_t)));
}

std::uint64_t SFTPPacketReader::number64() noexcept
{
    return number(sizeof(std::uint64_t));
}

std::string_view SFTPPacketReader::text() noexcept
{
    return take(number32());
}

std::string_view SFTPPacketReader::take(std::size_t size) noexcept
{
    if (size > rest_.size()) {
        hasFailed_ = true;
        rest_ = {};
        return {};
    }
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return taken;
}

std::uint64_t SFTPPacketReader::number(std::size_t size) noexcept
{
    std::uint64_t value = 0;
    for (const char byte : take(size)) {
        value = value << 8U | static_cast<std::uint8_t>(byte);
    }
    return value;
}

} // namespace Tarnis
