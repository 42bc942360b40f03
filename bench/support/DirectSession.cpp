#include "support/DirectSession.h"

#include "support/Require.h"

namespace TarnisBench {

namespace {

struct KeyCloser
{
    void operator()(ssh_key key) const noexcept { ssh_key_free(key); }
};

template <class Value>
void setOption(ssh_session session, ssh_options_e option, const Value* value)
{
    require(ssh_options_set(session, option, value) == SSH_OK, "setting an option");
}

void setOptions(ssh_session session, const Login& login)
{
    const unsigned int port = login.port;
    const int noDelay = 1;
    const bool readConfiguration = false;
    setOption(session, SSH_OPTIONS_HOST, login.host.c_str());
    setOption(session, SSH_OPTIONS_PORT, &port);
    setOption(session, SSH_OPTIONS_USER, login.user.c_str());
    setOption(session, SSH_OPTIONS_KNOWNHOSTS, login.knownHostsFile.c_str());
    setOption(session, SSH_OPTIONS_NODELAY, &noDelay);
    setOption(session, SSH_OPTIONS_PROCESS_CONFIG, &readConfiguration);
}

void authenticate(ssh_session session, const std::string& keyFile)
{
    ssh_key rawKey = nullptr;
    const int imported =
        ssh_pki_import_privkey_file(keyFile.c_str(), nullptr, nullptr, nullptr, &rawKey);
    const std::unique_ptr<ssh_key_struct, KeyCloser> key(rawKey);
    require(imported == SSH_OK, "reading the key");
    require(ssh_userauth_publickey(session, nullptr, key.get()) == SSH_AUTH_SUCCESS, "logging in");
}

bool isAuthenticated(const std::string& cipher)
{
    return cipher.find("poly1305") != std::string::npos || cipher.find("gcm") != std::string::npos;
}

} // namespace

void DirectSessionCloser::operator()(ssh_session session) const noexcept
{
    ssh_disconnect(session);
    ssh_free(session);
}

void DirectChannelCloser::operator()(ssh_channel channel) const noexcept
{
    ssh_channel_free(channel);
}

DirectSession logInDirectly(const Login& login)
{
    DirectSession session(ssh_new());
    setOptions(session.get(), login);
    require(ssh_connect(session.get()) == SSH_OK, "connecting");
    require(ssh_session_is_known_server(session.get()) == SSH_KNOWN_HOSTS_OK,
            "finding the server's key");
    authenticate(session.get(), login.keyFile);
    return session;
}

DirectChannel startDirectly(ssh_session session, const std::string& commandLine)
{
    DirectChannel channel(ssh_channel_new(session));
    require(channel != nullptr, "making a channel");
    require(ssh_channel_open_session(channel.get()) == SSH_OK, "opening a channel");
    require(ssh_channel_request_exec(channel.get(), commandLine.c_str()) == SSH_OK,
            "starting a command");
    return channel;
}

Algorithms negotiatedAlgorithms(ssh_session session)
{
    Algorithms algorithms;
    algorithms.keyExchange = ssh_get_kex_algo(session);
    algorithms.cipher = ssh_get_cipher_out(session);
    if (!isAuthenticated(algorithms.cipher)) {
        algorithms.mac = ssh_get_hmac_out(session);
    }
    return algorithms;
}

} // namespace TarnisBench
