#pragma once

#include "support/Availability.h"
#include "support/KeyPair.h"
#include "support/SshdProcess.h"

#include <map>

namespace TarnisTest {

struct OpenSshOptions
{
    std::vector<KeyType> hostKeyTypes{KeyType::Ed25519};
    /// Lines of the authorized_keys file beside the server's own clientKey().
    std::vector<std::string> authorizedKeys;
    /// Sessions that one connection may have open at the same time.
    int maxSessions = 10;
    /// Runs instead of whatever the client asks for; empty: what the client asks for.
    std::string forceCommand;
    /// Serves SFTP in place of OpenSSH's own server; empty: OpenSSH's own.
    std::string sftpCommand;
    /// More lines for the configuration.
    std::vector<std::string> extraLines;
};

/// A real sshd on 127.0.0.1 with throwaway keys and a configuration of its own. The user of the
/// test logs in, with keys only. Remote commands have an empty directory as HOME, but begin in the
/// user's real home directory: tests name files by absolute paths.
class OpenSshServer
{
public:
    static Availability availability();

    /// Returns when the server listens; throws std::runtime_error when it does not come up.
    explicit OpenSshServer(OpenSshOptions options = {});

    std::uint16_t port() const { return process_.ports().front(); }

    /// Who logs in: the user of the test.
    const std::string& user() const { return user_; }

    /// A key that the server accepts.
    const KeyPair& clientKey() const { return clientKey_; }

    /// Throws std::out_of_range when the server has no host key of this type.
    const KeyPair& hostKey(KeyType type = KeyType::Ed25519) const { return hostKeys_.at(type); }

    std::string hostPublicKeyBase64(KeyType type = KeyType::Ed25519) const
    {
        return hostKey(type).publicBase64;
    }

    /// What the server has logged since its last start.
    std::string log() const { return process_.log(); }

    /// Starts again, on the same port, after stop() or killAll().
    void start() { process_.start(); }

    /// Ends the listener and every connection.
    void stop() { process_.stop(); }

    /// Comes back on the same port with other host keys of the same types. Connections are lost.
    void restartWithNewHostKeys();

    /// Kills the listener and every connection's processes at once.
    void killAll() { process_.killAll(); }

    /// Kills every connection's processes; new connections are still served.
    void killConnections() { process_.killConnections(); }

    /// Freezes the listener and every connection's processes; connections stay open and silent.
    void suspendAll() { process_.suspendAll(); }

    void resumeAll() { process_.resumeAll(); }

    /// How many connections the server serves at the moment.
    std::size_t connectionProcessCount() const { return process_.connectionProcessCount(); }

private:
    void makeHostKeys();
    std::string sftpCommand() const;
    std::string configuration(std::uint16_t port) const;

    OpenSshOptions options_;
    TemporaryDirectory directory_;
    std::string user_;
    KeyPair clientKey_;
    std::map<KeyType, KeyPair> hostKeys_;
    int hostKeyGeneration_ = 0;
    SshdProcess process_;
};

} // namespace TarnisTest
