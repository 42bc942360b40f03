#pragma once

#include <cstddef>
#include <string_view>

namespace TarnisTool {

/// The first field of SSH's binary form of keys: four bytes of length, most significant first, then
/// that many bytes. Empty where the data is too short for it.
inline std::string_view firstField(std::string_view data)
{
    constexpr std::size_t lengthBytes = 4;
    if (data.size() < lengthBytes) {
        return {};
    }
    std::size_t length = 0;
    for (const char byte : data.substr(0, lengthBytes)) {
        length = length << 8U | static_cast<unsigned char>(byte);
    }
    data.remove_prefix(lengthBytes);
    return length <= data.size() ? data.substr(0, length) : std::string_view();
}

} // namespace TarnisTool
