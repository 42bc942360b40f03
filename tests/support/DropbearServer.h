#pragma once

#include "support/SshdProcess.h"
#include "support/WrappedUsers.h"

namespace TarnisTest {

/// A server by other authors than OpenSSH's: Dropbear, for invented users with password or key. It
/// sends a command's exit status after the end of its output. Needs root and the wrapper libraries:
/// ask availability() first, through requireServer().
class DropbearServer
{
public:
    static Availability availability();

    /// Returns when the server listens.
    DropbearServer();

    std::uint16_t port() const { return process_.ports().front(); }

    std::string user() const { return users_.user(); }

    std::string password() const { return users_.password(); }

    const KeyPair& clientKey() const { return users_.clientKey(); }

    /// Where the user may write, and where SFTP and commands begin.
    std::string homeDirectory() const { return users_.homeDirectory(); }

    std::string hostPublicKeyBase64() const { return hostPublicKeyBase64_; }

    std::string log() const { return process_.log(); }

    void killConnections() { process_.killConnections(); }

    void suspendAll() { process_.suspendAll(); }

    void resumeAll() { process_.resumeAll(); }

private:
    void makeHostKey();

    WrappedUsers users_;
    std::string hostKeyPath_;
    std::string hostPublicKeyBase64_;
    SshdProcess process_;
};

} // namespace TarnisTest
