#pragma once

#include <memory>
#include <string>

struct bio_st;

namespace Tarnis {

/// The text, in OpenSSH's own form and unencrypted, of an Ed25519 private key that was given in
/// PKCS#8 form. Overwritten in memory when it is destroyed.
class Ed25519KeyText
{
public:
    /// Both give an empty text when the source cannot be read with this pass phrase, or holds
    /// another kind of key. They ask nobody for a pass phrase.
    static Ed25519KeyText ofText(const std::string& pkcs8, const std::string& passPhrase);
    static Ed25519KeyText ofFile(const std::string& path, const std::string& passPhrase);

    /// Null for an empty text; lent for this object's life.
    const char* cString() const;

private:
    struct BioDeleter
    {
        void operator()(bio_st* bio) const noexcept;
    };

    using Bio = std::unique_ptr<bio_st, BioDeleter>;

    explicit Ed25519KeyText(Bio text);
    static Ed25519KeyText of(const Bio& pkcs8, const std::string& passPhrase);

    Bio text_;
};

} // namespace Tarnis
