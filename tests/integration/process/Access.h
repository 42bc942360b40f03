#pragma once

#include "support/AsyncSshServer.h"
#include "support/DropbearServer.h"
#include "support/OpenSshServer.h"
#include "support/PasswordSshServer.h"
#include "support/ProFtpdServer.h"
#include "support/RcloneServer.h"
#include "support/ScriptedServer.h"
#include "support/TcpProxy.h"

#include <Tarnis/SSHSession.h>

#include <cstdint>
#include <memory>
#include <string>

namespace TarnisTest {

/// Where a server is reached, and what it takes to be let in.
struct Access
{
    std::uint16_t port = 0;
    std::string user;
    /// Used when there is no key file.
    std::string password;
    std::string keyFile;

    /// The same server behind a proxy.
    Access through(const TcpProxy& proxy) const;
};

Access accessTo(const OpenSshServer& server);
Access accessTo(const PasswordSshServer& server);
Access accessTo(const DropbearServer& server);
Access accessTo(const AsyncSshServer& server);
Access accessTo(const ProFtpdServer& server);
Access accessTo(const RcloneServer& server);
Access accessTo(const ScriptedServer& server);

/// Connects and authenticates. Throws std::runtime_error, with the session's own words, when that
/// fails.
void logIn(Tarnis::SSHSession& session, const Access& access);

/// A session that is connected and authenticated.
std::unique_ptr<Tarnis::SSHSession> openSession(const Access& access);

} // namespace TarnisTest
