#pragma once

#include "support/Availability.h"
#include "support/ChildProcess.h"
#include "support/KeyPair.h"

#include <cstdint>
#include <memory>
#include <string>

namespace TarnisTest {

/// A server in Go: `rclone serve sftp`. It takes no more requests while its replies are not taken,
/// and reads and writes 32,768 bytes at a time. Files only. Needs Debian's rclone: ask
/// availability() first, through requireServer().
class RcloneServer
{
public:
    static Availability availability();

    /// Returns when the server listens.
    RcloneServer();

    std::uint16_t port() const { return port_; }

    static std::string user() { return "user"; }

    /// A key that the server accepts.
    const KeyPair& clientKey() const { return clientKey_; }

    /// The directory that is served, as this machine sees it; clients see it as "/".
    std::string root() const { return directory_.file("root"); }

    std::string log() const { return process_->errorOutput(); }

private:
    Command command() const;
    void awaitPort();

    TemporaryDirectory directory_;
    KeyPair hostKey_;
    KeyPair clientKey_;
    std::unique_ptr<ChildProcess> process_;
    std::uint16_t port_ = 0;
};

} // namespace TarnisTest
