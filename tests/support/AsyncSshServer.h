#pragma once

#include "support/Availability.h"
#include "support/ChildProcess.h"
#include "support/KeyPair.h"

#include <cstdint>
#include <memory>
#include <string>

namespace TarnisTest {

struct AsyncSshOptions
{
    /// What the server says of itself after "SSH-2.0-", such as "OpenSSH_10.0"; empty: the truth.
    std::string version;
    /// Serves SFTP in place of AsyncSSH's own server (see ScriptedSftp::command); empty: AsyncSSH's
    /// own.
    std::string sftpCommand;
    /// Every command gives its input back on both streams and exits with 7; its channel is then
    /// closed without an end of file. There is no SFTP.
    bool echoes = false;
};

/// A server by other authors than OpenSSH's: AsyncSSH, with keys, commands and SFTP. One process
/// serves all connections. Needs Debian's python3-asyncssh: ask availability() first, through
/// requireServer().
class AsyncSshServer
{
public:
    static Availability availability();

    /// Returns when the server listens; throws std::runtime_error when it does not come up.
    explicit AsyncSshServer(const AsyncSshOptions& options = {});

    std::uint16_t port() const { return port_; }

    /// A name to log in with; the server takes any.
    std::string user() const { return "tester"; }

    /// A key that the server accepts.
    const KeyPair& clientKey() const { return clientKey_; }

    std::string hostPublicKeyBase64() const { return hostKey_.publicBase64; }

    /// An empty directory where commands and SFTP begin, with its real path on both sides.
    std::string root() const { return directory_.file("root"); }

    std::string log() const { return process_->errorOutput(); }

    /// Ends the server and every connection at once.
    void killAll() { process_->kill(); }

    /// Freezes the server; connections stay open and silent.
    void suspendAll() { process_->suspend(); }

    void resumeAll() { process_->resume(); }

private:
    Command command(const AsyncSshOptions& options) const;
    void awaitPort();

    TemporaryDirectory directory_;
    KeyPair hostKey_;
    KeyPair clientKey_;
    std::unique_ptr<ChildProcess> process_;
    std::uint16_t port_ = 0;
};

} // namespace TarnisTest
