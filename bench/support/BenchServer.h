#pragma once

#include "support/KeyPair.h"
#include "support/Login.h"
#include "support/SshdProcess.h"
#include "support/TemporaryDirectory.h"

#include <string>
#include <vector>

namespace TarnisBench {

/// A line of the server's configuration that leaves one cipher: the one that the library prefers on
/// this processor, so that clients which order them otherwise use the same one.
std::string preferredCipherAlone();

/// The one sshd that every contestant of a run talks to: on a loopback port, with throwaway keys.
///
/// Remote commands run in /bin/sh with an empty home, whatever the user's own shell and start-up
/// files are: these could take many times as long as what is measured.
class BenchServer
{
public:
    /// Returns when it listens. Throws std::runtime_error when it does not come up.
    /// \param options more lines for its configuration.
    explicit BenchServer(std::string options = {});

    const Login& login() const { return login_; }

    /// The same log-in through something that listens on another port and passes everything on.
    Login loginThrough(std::uint16_t port) const;

    /// The environment of a client: an empty home of its own, for those that ask the accounts for
    /// it too, with the known-hosts file of the log-in at the usual place. No agent, no
    /// configuration.
    std::vector<std::string> clientEnvironment(const Login& login) const;

    /// A directory for files of the run, removed at its end.
    const TarnisTest::TemporaryDirectory& directory() const { return directory_; }

private:
    TarnisTest::Command command(std::uint16_t port) const;
    std::string configuration(std::uint16_t port) const;
    std::vector<std::string> wrapAccounts(const std::string& home) const;

    std::string options_;
    TarnisTest::TemporaryDirectory directory_;
    TarnisTest::KeyPair hostKey_;
    TarnisTest::KeyPair clientKey_;
    TarnisTest::SshdProcess process_;
    Login login_;
};

} // namespace TarnisBench
