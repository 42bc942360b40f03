#pragma once

#include "login/Target.h"

#include <Tarnis/SSHSession.h>

#include <chrono>
#include <string>

namespace TarnisTool {

/// Runs one command on the server, with our own standard streams as its streams.
///
/// Its end is the end of its streams, as with ssh: a child in the background that holds them is
/// waited for. Its exit code may come before that or after.
class RemoteCommand
{
public:
    /// \param session authenticated.
    /// \param timeout zero: none.
    RemoteCommand(Tarnis::SSHSession& session, const Target& target, std::chrono::seconds timeout);

    /// The code that this program should exit with. Throws Failure where that is not the command's.
    int run(const std::string& commandLine);

private:
    class Run;

    Tarnis::SSHSession& session_;
    const Target& target_;
    std::chrono::seconds timeout_;
};

} // namespace TarnisTool
