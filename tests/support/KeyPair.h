#pragma once

#include "support/TemporaryDirectory.h"

#include <string>

namespace TarnisTest {

enum class KeyType
{
    Ed25519,
    Ecdsa,
    Rsa
};

/// The forms in which a private key is stored.
enum class KeyFormat
{
    OpenSsh,
    Pem,
    Pkcs8
};

/// A throwaway key pair in two files, the public one with ".pub" at its end.
struct KeyPair
{
    std::string privatePath;
    std::string publicPath;
    /// The whole private file.
    std::string privateText;
    /// "type base64", without comment and newline: a line of an authorized_keys file.
    std::string publicLine;
    /// The base64 part alone.
    std::string publicBase64;
    /// "SHA256:..." as ssh-keygen -l prints it.
    std::string fingerprint;
};

/// The name of the type as ssh-keygen takes it: "ed25519", "ecdsa", "rsa".
std::string keyTypeName(KeyType type);

/// Makes a key pair named `name` in `directory`: Ed25519, ECDSA on P-256 or RSA with 2048 bits.
/// Throws std::invalid_argument for an Ed25519 key in the PEM form, which does not exist, and
/// std::runtime_error when ssh-keygen (openssl for an Ed25519 key in PKCS#8) fails, as ssh-keygen
/// does for a pass phrase of one to four characters.
KeyPair generateKey(const TemporaryDirectory& directory, const std::string& name,
                    KeyType type = KeyType::Ed25519, KeyFormat format = KeyFormat::OpenSsh,
                    const std::string& passPhrase = "");

} // namespace TarnisTest
