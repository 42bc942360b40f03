#include "session/CipherOrder.h"

namespace Tarnis {

namespace {

// From 0.11 on (seen in 0.11.5 and 0.12.2) "^" stands for "before the default list". 0.10.6 would
// take it for a part of the first name, drop that name as unknown, and propose the second alone.
constexpr const char* aheadOfDefaults = "^aes256-gcm@openssh.com,aes128-gcm@openssh.com";

// The default list of 0.10.6 begins with this one.
constexpr const char* chaCha20 = "chacha20-poly1305@openssh.com";

// The same list, in the order that is wanted. libssh leaves out what it was built without.
constexpr const char* wholeList = "aes256-gcm@openssh.com,aes128-gcm@openssh.com,"
                                  "chacha20-poly1305@openssh.com,"
                                  "aes256-ctr,aes192-ctr,aes128-ctr";

bool isSet(ssh_session session, ssh_options_e ciphers, const char* list)
{
    return ssh_options_set(session, ciphers, list) == SSH_OK;
}

/// Whether the libssh that runs, which may be newer than the one that was built with, knows "^".
bool knowsDefaultsMark()
{
    return ssh_version(SSH_VERSION_INT(0, 11, 0)) != nullptr;
}

bool putFirst(ssh_session session, ssh_options_e ciphers)
{
    if (knowsDefaultsMark()) {
        static_cast<void>(isSet(session, ciphers, aheadOfDefaults));
        return true;
    }
    // Without ChaCha20, as in FIPS mode, the default is another list. It begins with AES-GCM, and
    // a name that is refused has not changed it.
    return !isSet(session, ciphers, chaCha20) || isSet(session, ciphers, wholeList);
}

} // namespace

bool proposeAesGcmFirst(ssh_session session)
{
    return putFirst(session, SSH_OPTIONS_CIPHERS_C_S) && putFirst(session, SSH_OPTIONS_CIPHERS_S_C);
}

} // namespace Tarnis
