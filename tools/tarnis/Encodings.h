#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace TarnisTool {

/// Base64 with padding.
std::string encodeBase64(std::string_view bytes);

/// What base64 text stands for; empty where it is no base64.
std::optional<std::string> decodeBase64(std::string_view text);

/// Bytes of the character that the text begins with; 0 where no well-formed one does, or the text
/// is empty.
std::size_t utf8SequenceLength(std::string_view text);

/// Whether all of the text is well-formed UTF-8.
bool isUtf8(std::string_view text);

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
