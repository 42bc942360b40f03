#pragma once

#include "integration/process/Access.h"
#include "integration/session/SessionSteps.h"
#include "support/OpenSshServer.h"
#include "support/RequireServer.h"
#include "support/ScriptedSftpServer.h"
#include "support/TemporaryDirectory.h"
#include "support/WaitUntil.h"

#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHFileSystemSFTPFile.h>
#include <Tarnis/SSHSession.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace TarnisTest {

using OpenMode = FileSystem::StorageSystemFileOpenModeFlag;
using FilterType = FileSystem::StorageSystemDirectoryFilterType;
using ReadStatus = FileSystem::StorageSystemReadResult::Status;

inline constexpr std::size_t kMebibyte = 1'048'576;

/// Opens for reading.
inline constexpr Utilities::Flags<OpenMode> kRead{OpenMode::Read};
/// Opens an empty file for writing.
inline constexpr auto kWriteNew = OpenMode::Write | OpenMode::Create | OpenMode::Truncate;

/// The seconds since 1970 as a file's time.
FileSystem::StorageSystemTimePoint timeOf(std::int64_t seconds);

/// Reads a file to its end with readFully.
std::string contentOf(const FileSystem::FileSystem2& files, const std::string& path);

/// A session on a server, logged in, with a file system.
class SftpClient
{
public:
    explicit SftpClient(const Access& access)
        : session_(openSession(access))
        , files_(session_->createSFTPFileSystem())
    {}

    Tarnis::SSHSession& session() { return *session_; }

    Tarnis::SSHFileSystemSFTP& files() { return *files_; }

    bool hasFiles() const { return files_ != nullptr; }

    /// Takes a new file system from the session. False: there is none to be had.
    bool openFilesAgain()
    {
        files_ = session_->createSFTPFileSystem();
        return hasFiles();
    }

    void dropSession() { session_.reset(); }

    void dropFiles() { files_.reset(); }

private:
    std::unique_ptr<Tarnis::SSHSession> session_;
    std::unique_ptr<Tarnis::SSHFileSystemSFTP> files_;
};

/// OpenSSH's SFTP server over an empty directory of this machine.
class OpenSshSftpTest : public ::testing::Test
{
protected:
    void SetUp() override;

    OpenSshServer& server() { return *server_; }

    SftpClient& client() { return *client_; }

    Tarnis::SSHFileSystemSFTP& files() { return client_->files(); }

    /// The served directory, which the test may look into.
    const TemporaryDirectory& directory() const { return directory_; }

    std::string path(const std::string& name) const { return directory_.file(name); }

private:
    TemporaryDirectory directory_;
    std::unique_ptr<OpenSshServer> server_;
    std::unique_ptr<SftpClient> client_;
};

/// A scripted SFTP server behind a real sshd.
class ScriptedSftpTest : public ::testing::Test
{
protected:
    /// Starts the server and logs in.
    void start(const SftpScript& script = {}, OpenSshOptions options = {});

    ScriptedSftpServer& server() { return *server_; }

    SftpClient& client() { return *client_; }

    Tarnis::SSHFileSystemSFTP& files() { return client_->files(); }

    std::string path(const std::string& name) const { return server_->sftp().path(name); }

    /// A new SFTP session, on a new connection where the old one has ended.
    void startOver();

    /// Writes a file on the server and returns its path.
    std::string put(const std::string& name, const std::string& content);

private:
    std::unique_ptr<ScriptedSftpServer> server_;
    std::unique_ptr<SftpClient> client_;
};

} // namespace TarnisTest
