#include "integration/process/Access.h"

#include "integration/session/SessionSteps.h"

#include <stdexcept>

namespace TarnisTest {

namespace {

bool authenticateWith(Tarnis::SSHSession& session, const Access& access)
{
    using namespace Tarnis;
    const auto result =
        access.keyFile.empty()
            ? authenticate(session, UserAuthenticatorPassword(access.password))
            : authenticate(session, UserAuthenticatorPrivateKeyFile(access.keyFile, ""));
    return result == AuthenticateUserResult::Success;
}

} // namespace

Access Access::through(const TcpProxy& proxy) const
{
    Access access = *this;
    access.port = proxy.port();
    return access;
}

Access accessTo(const OpenSshServer& server)
{
    return {server.port(), server.user(), {}, server.clientKey().privatePath};
}

Access accessTo(const PasswordSshServer& server)
{
    return {server.port(Login::Password), server.user(), server.password(), {}};
}

Access accessTo(const DropbearServer& server)
{
    return {server.port(), server.user(), server.password(), {}};
}

Access accessTo(const AsyncSshServer& server)
{
    return {server.port(), server.user(), {}, server.clientKey().privatePath};
}

Access accessTo(const ProFtpdServer& server)
{
    return {server.port(), server.user(), {}, server.clientKey().privatePath};
}

Access accessTo(const RcloneServer& server)
{
    return {server.port(), server.user(), {}, server.clientKey().privatePath};
}

Access accessTo(const ScriptedServer& server)
{
    return {server.port(), "tester", ScriptedPolicy::kPassword, {}};
}

void logIn(Tarnis::SSHSession& session, const Access& access)
{
    address(session, access.port, access.user);
    if (!connectTrusting(session) || !authenticateWith(session, access)) {
        throw std::runtime_error("logging in failed: " + session.getLastError());
    }
}

std::unique_ptr<Tarnis::SSHSession> openSession(const Access& access)
{
    auto session = std::make_unique<Tarnis::SSHSession>();
    logIn(*session, access);
    return session;
}

} // namespace TarnisTest
