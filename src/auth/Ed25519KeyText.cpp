#include "auth/Ed25519KeyText.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

namespace Tarnis {

namespace {

using namespace std::string_view_literals;

struct KeyDeleter
{
    void operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }
};

using Key = std::unique_ptr<EVP_PKEY, KeyDeleter>;

/// Takes back what a failure here adds to the thread's queue of errors: the host may be using the
/// same library, and would read it as the reason of a failure of its own.
class ErrorQueueGuard
{
public:
    ErrorQueueGuard() { ERR_set_mark(); }

    ErrorQueueGuard(const ErrorQueueGuard&) = delete;
    ErrorQueueGuard& operator=(const ErrorQueueGuard&) = delete;

    ~ErrorQueueGuard() { ERR_pop_to_mark(); }
};

/// Bytes in the encoding of SSH messages, overwritten when they are no longer needed.
class WireBytes
{
public:
    // The memory is taken once: a growing string would leave copies behind.
    WireBytes() { bytes_.reserve(512); }

    WireBytes(const WireBytes&) = delete;
    WireBytes& operator=(const WireBytes&) = delete;

    ~WireBytes() { OPENSSL_cleanse(bytes_.data(), bytes_.size()); }

    WireBytes& raw(std::string_view bytes)
    {
        bytes_.append(bytes);
        return *this;
    }

    WireBytes& number(std::uint32_t value)
    {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes_.push_back(static_cast<char>(value >> static_cast<unsigned>(shift) & 0xffU));
        }
        return *this;
    }

    WireBytes& string(std::string_view bytes)
    {
        return number(static_cast<std::uint32_t>(bytes.size())).raw(bytes);
    }

    /// Fills the last block up with the bytes 1, 2, 3 ...
    WireBytes& padded(std::size_t blockSize)
    {
        for (char next = 1; bytes_.size() % blockSize != 0; ++next) {
            bytes_.push_back(next);
        }
        return *this;
    }

    std::string_view view() const { return bytes_; }

private:
    std::string bytes_;
};

/// The two halves of a key.
class Halves
{
public:
    Halves() = default;
    Halves(const Halves&) = delete;
    Halves& operator=(const Halves&) = delete;

    ~Halves() { OPENSSL_cleanse(private_.data(), private_.size()); }

    bool readFrom(const Key& key)
    {
        return readHalf(EVP_PKEY_get_raw_private_key, key, private_) &&
               readHalf(EVP_PKEY_get_raw_public_key, key, public_);
    }

    std::string_view privateHalf() const { return view(private_); }

    std::string_view publicHalf() const { return view(public_); }

private:
    using Half = std::array<unsigned char, 32>;
    using Getter = int (*)(const EVP_PKEY* key, unsigned char* bytes, size_t* size);

    static bool readHalf(Getter getter, const Key& key, Half& half)
    {
        std::size_t size = half.size();
        return getter(key.get(), half.data(), &size) == 1 && size == half.size();
    }

    static std::string_view view(const Half& half)
    {
        return {reinterpret_cast<const char*>(half.data()), half.size()};
    }

    Half private_{};
    Half public_{};
};

/// In place of the library's own answer to an encrypted key, which is to ask at the terminal.
int givePassPhrase(char* buffer, int capacity, int /*forWriting*/, void* passPhrase)
{
    const auto& text = *static_cast<const std::string*>(passPhrase);
    if (text.size() > static_cast<std::size_t>(capacity)) {
        return -1;
    }
    std::copy(text.begin(), text.end(), buffer);
    return static_cast<int>(text.size());
}

Key readKey(bio_st* source, std::string passPhrase)
{
    Key key(PEM_read_bio_PrivateKey(source, nullptr, givePassPhrase, &passPhrase));
    OPENSSL_cleanse(passPhrase.data(), passPhrase.size());
    return key != nullptr && EVP_PKEY_get_id(key.get()) == EVP_PKEY_ED25519 ? std::move(key)
                                                                            : nullptr;
}

/// The layout is that of OpenSSH's PROTOCOL.key.
void encode(const Halves& halves, WireBytes& encoded)
{
    constexpr std::string_view type = "ssh-ed25519"sv;
    constexpr std::string_view none = "none"sv;
    constexpr std::uint32_t keyCount = 1;
    constexpr std::uint32_t check = 0; // twice the same number: not garbled by decryption
    constexpr std::size_t blockSize = 8;

    WireBytes publicBlob;
    publicBlob.string(type).string(halves.publicHalf());

    WireBytes bothHalves;
    bothHalves.raw(halves.privateHalf()).raw(halves.publicHalf());
    WireBytes privateSection;
    privateSection.number(check)
        .number(check)
        .string(type)
        .string(halves.publicHalf())
        .string(bothHalves.view())
        .string(""sv) // the comment
        .padded(blockSize);

    encoded.raw("openssh-key-v1\0"sv)
        .string(none) // the cipher
        .string(none) // the key derivation
        .string(""sv) // its options
        .number(keyCount)
        .string(publicBlob.view())
        .string(privateSection.view());
}

/// Whether the key was written, as a C string.
bool write(bio_st* target, const Halves& halves)
{
    WireBytes encoded;
    encode(halves, encoded);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(encoded.view().data());
    const auto size = static_cast<long>(encoded.view().size());
    return PEM_write_bio(target, "OPENSSH PRIVATE KEY", "", bytes, size) > 0 &&
           BIO_write(target, "", 1) == 1;
}

} // namespace

void Ed25519KeyText::BioDeleter::operator()(bio_st* bio) const noexcept
{
    BIO_free_all(bio);
}

Ed25519KeyText::Ed25519KeyText(Bio text)
    : text_(std::move(text))
{}

Ed25519KeyText Ed25519KeyText::ofText(const std::string& pkcs8, const std::string& passPhrase)
{
    const ErrorQueueGuard guard;
    return of(Bio(BIO_new_mem_buf(pkcs8.data(), static_cast<int>(pkcs8.size()))), passPhrase);
}

Ed25519KeyText Ed25519KeyText::ofFile(const std::string& path, const std::string& passPhrase)
{
    const ErrorQueueGuard guard;
    return of(Bio(BIO_new_file(path.c_str(), "r")), passPhrase);
}

Ed25519KeyText Ed25519KeyText::of(const Bio& pkcs8, const std::string& passPhrase)
{
    const Key key = pkcs8 != nullptr ? readKey(pkcs8.get(), passPhrase) : nullptr;
    Bio text(BIO_new(BIO_s_secmem()));
    Halves halves;
    const bool written =
        key != nullptr && text != nullptr && halves.readFrom(key) && write(text.get(), halves);
    return Ed25519KeyText(written ? std::move(text) : nullptr);
}

const char* Ed25519KeyText::cString() const
{
    char* text = nullptr;
    if (text_ != nullptr) {
        BIO_get_mem_data(text_.get(), &text);
    }
    return text;
}

} // namespace Tarnis
