#include "login/Fingerprint.h"

#include "Base64.h"
#include "login/SshFields.h"

#include <array>

#include <openssl/evp.h>

namespace TarnisTool {

namespace {

std::string withoutPadding(std::string text)
{
    while (!text.empty() && text.back() == '=') {
        text.pop_back();
    }
    return text;
}

} // namespace

std::string fingerprintOf(std::string_view keyBase64)
{
    const auto key = decodeBase64(keyBase64);
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (!key ||
        EVP_Digest(key->data(), key->size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
        return {};
    }
    return "SHA256:" + withoutPadding(encodeBase64(
                           std::string_view(reinterpret_cast<const char*>(digest.data()), size)));
}

std::string keyTypeOf(std::string_view keyBase64)
{
    const auto key = decodeBase64(keyBase64);
    return key ? std::string(firstField(*key)) : std::string();
}

} // namespace TarnisTool
