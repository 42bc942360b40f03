#pragma once

#include "support/KeyPair.h"
#include "support/TemporaryDirectory.h"

#include <cstdint>
#include <string>

namespace TarnisTest {

/// A known-hosts file of the test's own; it does not exist until something is written to it.
class KnownHostsFile
{
public:
    std::string path() const { return directory_.file("known_hosts"); }

    /// Replaces the whole content.
    void write(const std::string& text) const { directory_.write("known_hosts", text); }

    std::string text() const { return readFile(path()); }

    bool exists() const;

    /// Replaces the host names by hashes, as ssh-keygen -H does.
    void hashNames() const;

    const TemporaryDirectory& directory() const { return directory_; }

private:
    TemporaryDirectory directory_;
};

/// "[127.0.0.1]:port type base64" with a newline: what vouches for a server of a test.
std::string knownHostsLine(std::uint16_t port, const KeyPair& key);

} // namespace TarnisTest
