#pragma once

#include <cstddef>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

namespace TarnisTool {

/// The same JSON without the characters that control a terminal: DEL and U+0080 to U+009F, which
/// need not be escaped in JSON. They stand in strings alone.
inline std::string withControlsEscaped(const std::string& json)
{
    std::string escaped;
    escaped.reserve(json.size());
    for (std::size_t i = 0; i < json.size(); ++i) {
        const unsigned code = i + 1 < json.size() ? static_cast<unsigned char>(json[i + 1]) : 0U;
        if (json[i] == '\x7F') {
            escaped += "\\u007f";
        } else if (json[i] == '\xC2' && code >= 0x80U && code <= 0x9FU) {
            constexpr const char* digits = "0123456789abcdef";
            escaped += std::string("\\u00") + digits[code >> 4U] + digits[code & 0xFU];
            ++i;
        } else {
            escaped += json[i];
        }
    }
    return escaped;
}

/// Writes a value to standard output, for people to read too. What is no UTF-8 becomes U+FFFD.
inline void printJson(const nlohmann::ordered_json& value)
{
    constexpr int indentation = 2;
    std::cout << withControlsEscaped(value.dump(indentation, ' ', false,
                                                nlohmann::ordered_json::error_handler_t::replace))
              << '\n';
}

} // namespace TarnisTool
