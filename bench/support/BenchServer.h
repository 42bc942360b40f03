#pragma once

#include "support/KeyPair.h"
#include "support/Login.h"
#include "support/SshdProcess.h"
#include "support/TemporaryDirectory.h"

namespace TarnisBench {

/// The one sshd that every contestant of a run talks to: on a loopback port, with throwaway keys.
///
/// Remote commands run in /bin/sh with an empty home, whatever the user's own shell and start-up
/// files are: these could take many times as long as what is measured.
class BenchServer
{
public:
    /// Returns when it listens. Throws std::runtime_error when it does not come up.
    BenchServer();

    const Login& login() const { return login_; }

    /// A directory for files of the run, removed at its end.
    const TarnisTest::TemporaryDirectory& directory() const { return directory_; }

private:
    TarnisTest::Command command(std::uint16_t port) const;
    std::string configuration(std::uint16_t port) const;
    void writeAccounts() const;

    TarnisTest::TemporaryDirectory directory_;
    TarnisTest::KeyPair hostKey_;
    TarnisTest::KeyPair clientKey_;
    TarnisTest::SshdProcess process_;
    Login login_;
};

} // namespace TarnisBench
