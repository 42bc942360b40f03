#include "Encodings.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include <openssl/evp.h>

namespace TarnisTool {

namespace {

const unsigned char* bytesOf(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::size_t paddingOf(std::string_view text)
{
    const auto last = text.find_last_not_of('=');
    return last == std::string_view::npos ? text.size() : text.size() - last - 1;
}

} // namespace

std::string encodeBase64(std::string_view bytes)
{
    // Four characters for three bytes, and a terminating zero.
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                       bytesOf(bytes), static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::optional<std::string> decodeBase64(std::string_view text)
{
    const std::size_t padding = paddingOf(text);
    if (text.empty() || text.size() % 4 != 0 || padding > 2) {
        return std::nullopt;
    }
    std::string bytes(text.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                       bytesOf(text), static_cast<int>(text.size()));
    if (length < 0) {
        return std::nullopt;
    }
    // OpenSSL decodes the padding to zero bytes.
    bytes.resize(static_cast<std::size_t>(length) - padding);
    return bytes;
}

namespace {

/// Which first bytes begin a character of that length, and what the second byte may be. This leaves
/// out overlong forms, surrogates and what lies beyond the last character.
struct Form
{
    unsigned char firstLow;
    unsigned char firstHigh;
    unsigned char secondLow;
    unsigned char secondHigh;
    std::size_t length;
};

constexpr std::array<Form, 9> forms{{
    {0x00, 0x7F, 0x00, 0x00, 1},
    {0xC2, 0xDF, 0x80, 0xBF, 2},
    {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3},
    {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4},
    {0xF4, 0xF4, 0x80, 0x8F, 4},
}};

bool isBetween(char character, unsigned char low, unsigned char high)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte >= low && byte <= high;
}

bool fits(const Form& form, std::string_view text)
{
    if (!isBetween(text.front(), form.firstLow, form.firstHigh) || text.size() < form.length) {
        return false;
    }
    if (form.length == 1) {
        return true;
    }
    const std::string_view rest = text.substr(2, form.length - 2);
    return isBetween(text[1], form.secondLow, form.secondHigh) &&
           std::all_of(rest.begin(), rest.end(), [](char c) { return isBetween(c, 0x80, 0xBF); });
}

} // namespace

std::size_t utf8SequenceLength(std::string_view text)
{
    if (text.empty()) {
        return 0;
    }
    for (const Form& form : forms) {
        if (fits(form, text)) {
            return form.length;
        }
    }
    return 0;
}

bool isUtf8(std::string_view text)
{
    while (!text.empty()) {
        const std::size_t length = utf8SequenceLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

} // namespace TarnisTool
