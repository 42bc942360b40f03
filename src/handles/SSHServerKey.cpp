#include "handles/SSHServerKey.h"

#include "handles/SSHCall.h"
#include "handles/SSHHandleSession.h"

#include <Tarnis/SSHDefaultDeleter.h>

#include <cstddef>
#include <memory>
#include <utility>

namespace Tarnis {

namespace {

using Key = std::unique_ptr<ssh_key_struct, ssh_default_deleter<ssh_key_struct>>;

/// Null when there is none.
Key serverKey(SSHHandleSession& session)
{
    ssh_key key = nullptr;
    const int fetched = callLocked(session, ssh_get_server_publickey, &key);
    Key owned(key);
    return fetched == SSH_OK ? std::move(owned) : nullptr;
}

/// A copy of a text of libssh's, which is released.
std::string takeText(char* text)
{
    const std::unique_ptr<char, ssh_default_deleter<char>> owned(text);
    return text != nullptr ? std::string(text) : std::string();
}

struct HashDeleter
{
    void operator()(unsigned char* hash) const noexcept { ssh_clean_pubkey_hash(&hash); }
};

} // namespace

std::string serverKeyBase64(SSHHandleSession& session)
{
    const Key key = serverKey(session);
    char* text = nullptr;
    const bool isExported =
        key != nullptr && ssh_pki_export_pubkey_base64(key.get(), &text) == SSH_OK;
    std::string copy = takeText(text);
    return isExported ? copy : std::string();
}

std::string serverKeyFingerprint(SSHHandleSession& session)
{
    const Key key = serverKey(session);
    unsigned char* hash = nullptr;
    std::size_t size = 0;
    if (key == nullptr ||
        ssh_get_publickey_hash(key.get(), SSH_PUBLICKEY_HASH_SHA256, &hash, &size) != SSH_OK) {
        return {};
    }
    const std::unique_ptr<unsigned char, HashDeleter> owned(hash);
    return takeText(ssh_get_fingerprint_hash(SSH_PUBLICKEY_HASH_SHA256, hash, size));
}

} // namespace Tarnis
