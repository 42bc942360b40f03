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
    require(session->connect(), "connecting: " + session->getLastError());
    const auto host = session->hostAuthenticate(Known(Known::AutoMode::KnownOnly, false));
    const auto user =
        session->userAuthenticate(Tarnis::UserAuthenticatorPrivateKeyFile(login.keyFile, ""));
    require(host && user && session->isAuthenticated(), "logging in: " + session->getLastError());
    return session;
}

} // namespace TarnisBench
