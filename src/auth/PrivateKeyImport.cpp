#include "auth/PrivateKeyImport.h"

#include "auth/Ed25519KeyText.h"
#include "handles/CString.h"

#include <libssh/libssh.h>

#include <utility>

namespace Tarnis {

namespace {

/// libssh's import of a private key from a text or a file.
using Import = int (*)(const char* source, const char* passPhrase, ssh_auth_callback prompt,
                       void* promptData, ssh_key* key);

using Rewriting = Ed25519KeyText (*)(const std::string& source, const std::string& passPhrase);

PrivateKey importWith(Import import, const char* source, const char* passPhrase)
{
    ssh_key key = nullptr;
    const int imported = import(source, passPhrase, refusePrompt, nullptr, &key);
    PrivateKey owned(key);
    return imported == SSH_OK ? std::move(owned) : nullptr;
}

bool hasPublicHalf(const PrivateKey& key)
{
    char* text = nullptr;
    const int exported = ssh_pki_export_pubkey_base64(key.get(), &text);
    const std::unique_ptr<char, ssh_default_deleter<char>> owned(text);
    return exported == SSH_OK;
}

/// libssh 0.10 reads an Ed25519 key in PKCS#8 form without the public half that has to be shown to
/// a server. In OpenSSH's form, which states it, the same key is whole.
PrivateKey importWhole(Import import, Rewriting inOpenSshForm, const std::string& source,
                       const std::string& passPhrase)
{
    PrivateKey key = importWith(import, nullIfEmpty(source), nullIfEmpty(passPhrase));
    if (key == nullptr || hasPublicHalf(key)) {
        return key;
    }
    const Ed25519KeyText rewritten = inOpenSshForm(source, passPhrase);
    PrivateKey whole = importWith(ssh_pki_import_privkey_base64, rewritten.cString(), nullptr);
    return whole != nullptr ? std::move(whole) : std::move(key);
}

} // namespace

PrivateKey importPrivateKey(const std::string& text, const std::string& passPhrase)
{
    return importWhole(ssh_pki_import_privkey_base64, Ed25519KeyText::ofText, text, passPhrase);
}

PrivateKey importPrivateKeyFile(const std::string& path, const std::string& passPhrase)
{
    return importWhole(ssh_pki_import_privkey_file, Ed25519KeyText::ofFile, path, passPhrase);
}

int refusePrompt(const char* /*prompt*/, char* /*buffer*/, std::size_t /*length*/, int /*echo*/,
                 int /*verify*/, void* /*userData*/)
{
    return -1;
}

} // namespace Tarnis
