#include "login/Fingerprint.h"

#include "login/SshFields.h"

#include <array>

#include <openssl/evp.h>

namespace TarnisTool {

namespace {

const unsigned char* bytesOf(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string encodeBase64WithoutPadding(const unsigned char* bytes, std::size_t size)
{
    // Four characters for three bytes, and a terminating zero.
    std::string text((size + 2) / 3 * 4 + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes,
                                       static_cast<int>(size));
    text.resize(static_cast<std::size_t>(length));
    while (!text.empty() && text.back() == '=') {
        text.pop_back();
    }
    return text;
}

std::size_t paddingOf(std::string_view text)
{
    const auto last = text.find_last_not_of('=');
    return last == std::string_view::npos ? text.size() : text.size() - last - 1;
}

} // namespace

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

std::string fingerprintOf(std::string_view keyBase64)
{
    const auto key = decodeBase64(keyBase64);
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (!key ||
        EVP_Digest(bytesOf(*key), key->size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
        return {};
    }
    return "SHA256:" + encodeBase64WithoutPadding(digest.data(), size);
}

std::string keyTypeOf(std::string_view keyBase64)
{
    const auto key = decodeBase64(keyBase64);
    return key ? std::string(firstField(*key)) : std::string();
}

} // namespace TarnisTool
