#pragma once

#include "support/DirectSession.h"
#include "support/Login.h"
#include "support/SpawnedProcess.h"

#include <memory>
#include <string>
#include <vector>

namespace TarnisBench {

/// Options of `ssh` and the programs built on it: this key and these known hosts only, no
/// configuration file, no agent, no questions.
std::vector<std::string> openSshOptions(const Login& login);

/// Command lines of the program `ssh` for the same server, key, known-hosts file and algorithms as
/// everybody else, with no configuration file and no agent.
class OpenSshClient
{
public:
    OpenSshClient(Login login, Algorithms algorithms);

    /// `ssh OPTIONS host REMOTE-COMMAND`.
    std::vector<std::string> commandLine(const std::vector<std::string>& options,
                                         const std::string& remoteCommand) const;

private:
    Login login_;
    Algorithms algorithms_;
};

/// A connection that `ssh` keeps open in the background for later calls to share.
class OpenSshSharedConnection
{
public:
    /// Returns when it stands. Throws std::runtime_error when it does not come up.
    /// \param socket path of the socket through which it is shared.
    OpenSshSharedConnection(const OpenSshClient& client, std::string socket);

    /// A call that shares the connection.
    std::vector<std::string> commandLine(const std::string& remoteCommand) const;

private:
    const OpenSshClient& client_;
    std::string socket_;
    SpawnedProcess master_;
};

/// Connects and logs in with `ssh`; returns at the moment at which it says that it is logged in.
/// The connection ends with the returned object.
std::unique_ptr<SpawnedProcess> logInWithOpenSsh(const OpenSshClient& client);

} // namespace TarnisBench
