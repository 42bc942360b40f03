#include "support/TarnisSession.h"

#include "support/Require.h"

namespace TarnisBench {

std::unique_ptr<Tarnis::SSHSession> logInWithTarnis(const Login& login)
{
    using Known = Tarnis::HostAuthenticatorKnownHostFile;
    auto session = std::make_unique<Tarnis::SSHSession>();
    session->setHostName(login.host);
    session->setPortNumber(login.port);
    session->setUserName(login.user);
    session->setKnownHostsFile(login.knownHostsFile);
    session->connect();
    session->hostAuthenticate(Known(Known::AutoMode::KnownOnly, false));
    session->userAuthenticate(Tarnis::UserAuthenticatorPrivateKeyFile(login.keyFile, ""));
    require(session->isAuthenticated(), "logging in: " + session->getLastError());
    return session;
}

} // namespace TarnisBench
