#pragma once

#include "support/OpenSshServer.h"
#include "support/ScriptedSftp.h"

namespace TarnisTest {

/// A real sshd whose SFTP service does what a script says.
class ScriptedSftpServer
{
public:
    static Availability availability() { return OpenSshServer::availability(); }

    /// Returns when the server listens. The options' own SFTP service is replaced.
    explicit ScriptedSftpServer(const SftpScript& script = {}, OpenSshOptions options = {});

    ScriptedSftp& sftp() { return sftp_; }

    const ScriptedSftp& sftp() const { return sftp_; }

    /// Port, keys, and ways to end or freeze it.
    OpenSshServer& ssh() { return ssh_; }

    const OpenSshServer& ssh() const { return ssh_; }

private:
    ScriptedSftp sftp_;
    OpenSshServer ssh_;
};

} // namespace TarnisTest
