#pragma once

#include "support/KeyPair.h"
#include "support/SshdProcess.h"

namespace TarnisTest {

/// A server by other authors than OpenSSH's: ProFTPD with mod_sftp, for files only. A user of its
/// own, with the rights of the user of the test, logs in with a key. Needs Debian's proftpd-core
/// and proftpd-mod-crypto: ask availability() first, through requireServer().
class ProFtpdServer
{
public:
    static Availability availability();

    /// Returns when the server listens; throws std::runtime_error when it does not come up.
    ProFtpdServer();

    std::uint16_t port() const { return process_.ports().front(); }

    std::string user() const { return "tester"; }

    /// A key that the server accepts.
    const KeyPair& clientKey() const { return clientKey_; }

    std::string hostPublicKeyBase64() const { return hostKey_.publicBase64; }

    /// The directory that is served: empty at first, and the user's home.
    std::string root() const { return directory_.file("root"); }

    /// The path of root() for clients: "/" where the test runs as root, since the server then locks
    /// its users into it; the real path elsewhere.
    std::string remoteRoot() const;

    /// What the server has logged, that of its SFTP part last.
    std::string log() const;

    /// Ends the server and every connection at once.
    void killAll() { process_.killAll(); }

    /// Kills every connection's process; new connections are still served.
    void killConnections() { process_.killConnections(); }

    /// Freezes the server and every connection's process; connections stay open and silent.
    void suspendAll() { process_.suspendAll(); }

    void resumeAll() { process_.resumeAll(); }

private:
    void writeUser() const;
    std::string configuration(std::uint16_t port) const;

    TemporaryDirectory directory_;
    KeyPair hostKey_;
    KeyPair clientKey_;
    SshdProcess process_;
};

} // namespace TarnisTest
