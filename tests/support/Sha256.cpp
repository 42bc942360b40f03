#include "support/Sha256.h"

#include <array>
#include <stdexcept>

#include <openssl/evp.h>

namespace TarnisTest {

namespace {

struct ContextDeleter
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

using Context = std::unique_ptr<EVP_MD_CTX, ContextDeleter>;

void check(int result)
{
    if (result != 1) {
        throw std::runtime_error("libcrypto refuses to compute a digest");
    }
}

std::string toHex(const unsigned char* bytes, std::size_t size)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += kDigits[bytes[i] >> 4U];
        text += kDigits[bytes[i] & 0xfU];
    }
    return text;
}

} // namespace

struct Sha256::State
{
    Context context{EVP_MD_CTX_new()};
};

Sha256::Sha256()
    : state_(std::make_unique<State>())
{
    check(EVP_DigestInit_ex(state_->context.get(), EVP_sha256(), nullptr));
}

Sha256::~Sha256() = default;

void Sha256::update(std::string_view bytes)
{
    check(EVP_DigestUpdate(state_->context.get(), bytes.data(), bytes.size()));
}

std::string Sha256::hexDigest() const
{
    const Context copy(EVP_MD_CTX_new());
    check(EVP_MD_CTX_copy_ex(copy.get(), state_->context.get()));
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    check(EVP_DigestFinal_ex(copy.get(), digest.data(), &size));
    return toHex(digest.data(), size);
}

std::string sha256(std::string_view bytes)
{
    Sha256 digest;
    digest.update(bytes);
    return digest.hexDigest();
}

} // namespace TarnisTest
