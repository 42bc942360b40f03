#include "Base64.h"

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

} // namespace TarnisTool
