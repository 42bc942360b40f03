#pragma once

#include "support/selftest/SshClient.h"

#include <libssh/sftp.h>

#include <memory>
#include <string>
#include <vector>

namespace TarnisTest {

/// A libssh SFTP session, logged in with a key.
class SftpClient
{
public:
    SftpClient(std::uint16_t port, const std::string& user, const KeyPair& key);
    SftpClient(const SftpClient&) = delete;
    SftpClient& operator=(const SftpClient&) = delete;
    ~SftpClient();

    /// Whether login and the start of SFTP went well.
    bool isReady() const { return sftp_ != nullptr; }

    sftp_session get() const { return sftp_; }

    ssh_session session() const { return session_.get(); }

    /// The names in a directory, sorted.
    std::vector<std::string> list(const std::string& path) const;
    /// Makes or replaces a file; false when any step fails.
    bool put(const std::string& path, const std::string& content) const;
    /// The content of a file, read with one request in flight; empty when any step fails.
    std::string get(const std::string& path) const;
    /// The target of a symbolic link; empty when there is none.
    std::string linkTarget(const std::string& path) const;

private:
    ClientSession session_;
    sftp_session sftp_ = nullptr;
};

} // namespace TarnisTest
