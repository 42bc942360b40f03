#include "handles/SSHServerKey.h"

#include "handles/SSHCall.h"
#include "handles/SSHHandleSession.h"

#include <Tarnis/SSHDefaultDeleter.h>

#include <memory>

namespace Tarnis {

std::string serverKeyBase64(SSHHandleSession& session)
{
    ssh_key rawKey = nullptr;
    const int fetched = callLocked(session, ssh_get_server_publickey, &rawKey);
    const std::unique_ptr<ssh_key_struct, ssh_default_deleter<ssh_key_struct>> key(rawKey);
    if (fetched != SSH_OK) {
        return {};
    }
    char* rawText = nullptr;
    const int exported = ssh_pki_export_pubkey_base64(key.get(), &rawText);
    const std::unique_ptr<char, ssh_default_deleter<char>> text(rawText);
    return exported == SSH_OK && text != nullptr ? std::string(text.get()) : std::string();
}

} // namespace Tarnis
