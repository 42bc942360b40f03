#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace TarnisTest {

/// Bytes from their digits in base 16, as in "00000006 0c 01020304 'text'": blanks do not count,
/// and what stands between two quotes is meant as it is.
inline std::string wireBytes(std::string_view notation)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string bytes;
    for (std::size_t at = 0; at < notation.size(); ++at) {
        if (notation[at] == '\'') {
            const std::size_t end = notation.find('\'', at + 1);
            bytes.append(notation.substr(at + 1, end - at - 1));
            at = end;
        } else if (notation[at] != ' ') {
            const std::size_t high = digits.find(notation.at(at));
            const std::size_t low = digits.find(notation.at(++at));
            if (high == std::string_view::npos || low == std::string_view::npos) {
                throw std::invalid_argument("no digits: " + std::string(notation.substr(at - 1)));
            }
            bytes.push_back(static_cast<char>(high * digits.size() + low));
        }
    }
    return bytes;
}

} // namespace TarnisTest
