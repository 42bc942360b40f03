#pragma once

#include "contract/StorageSystemUnderTest.h"
#include "integration/process/Access.h"
#include "support/TemporaryDirectory.h"
#include "support/UnprivilegedUser.h"

#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHSession.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace TarnisTest {

/// What a backend knows of a server that runs.
struct SftpService
{
    Access access;
    /// A directory of the server's where tests have room, as this machine sees it.
    std::string localRoot;
    /// The same directory for clients, without a slash at its end: empty where it is their root.
    std::string remoteRoot;
    Capabilities capabilities;
    /// Whether the user who logs in is nobody in particular, whoever runs the tests: these act as
    /// nobody then too, so that either can work with what the other made.
    bool servesNobody = false;
};

/// What holds over SFTP with every server.
Capabilities sftpCapabilities();

/// The same where the user of the test logs in: without what does not apply to the superuser.
Capabilities sftpCapabilitiesOfOwnUser();

/// A remote file tree with a session of its own.
class SftpClient
{
public:
    /// Throws std::runtime_error when it cannot log in or there is no SFTP.
    explicit SftpClient(const Access& access);

    const Tarnis::SSHFileSystemSFTP& files() const { return *files_; }

private:
    std::unique_ptr<Tarnis::SSHSession> session_;
    std::unique_ptr<Tarnis::SSHFileSystemSFTP> files_;
};

/// Two sessions on one server, for all tests of a program one after the other: with some servers,
/// logging in takes far longer than most tests do.
class SftpClients
{
public:
    explicit SftpClients(SftpService service);

    const SftpService& service() const { return service_; }

    const Tarnis::SSHFileSystemSFTP& files() { return files(first_); }

    const Tarnis::SSHFileSystemSFTP& otherFiles() { return files(second_); }

    /// Has the next test log in anew.
    void drop();

private:
    const Tarnis::SSHFileSystemSFTP& files(std::optional<SftpClient>& client) const;

    const SftpService service_;
    std::optional<SftpClient> first_;
    std::optional<SftpClient> second_;
};

/// A directory of a remote file tree.
class SftpUnderTest final : public StorageSystemUnderTest
{
public:
    /// Throws std::runtime_error when there is no session and it cannot log in.
    explicit SftpUnderTest(SftpClients& clients);
    ~SftpUnderTest() override;

    const FileSystem::FileSystem2& fileSystem() const override { return files_; }

    const FileSystem::FileSystem2& otherFileSystem() const override
    {
        return clients_.otherFiles();
    }

    std::string directory() const override;

    Capabilities capabilities() const override { return clients_.service().capabilities; }

    std::string localPath(const std::string& path) const override;

private:
    SftpClients& clients_;
    const Tarnis::SSHFileSystemSFTP& files_; // From the start: threads ask for it together.
    std::optional<UnprivilegedUser> user_;   // Before the directory, which is to be that user's.
    std::optional<TemporaryDirectory> directory_;
};

/// Adds a backend as registerBackend() does. The server is started by the first test that runs, and
/// `start` returns what that made.
bool registerSftpBackend(const std::string& name, std::function<Availability()> availability,
                         std::function<SftpService()> start);

} // namespace TarnisTest
