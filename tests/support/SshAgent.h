#pragma once

#include "support/ChildProcess.h"
#include "support/KeyPair.h"

namespace TarnisTest {

/// An ssh-agent of the test's own, which ends with this object. Nobody else's agent is touched.
class SshAgent
{
public:
    /// Returns when the agent answers on its socket; throws when it does not come up.
    SshAgent();

    /// For SSH_AUTH_SOCK.
    const std::string& socketPath() const { return socketPath_; }

    /// Hands a key to the agent; it must have no pass phrase. Throws when the agent refuses it.
    void add(const KeyPair& key);
    /// Takes every key away.
    void removeAll();

private:
    void control(std::vector<std::string> arguments);

    TemporaryDirectory directory_;
    std::string socketPath_;
    ChildProcess process_;
};

} // namespace TarnisTest
