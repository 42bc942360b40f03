#pragma once

#include "fakes/LibsshMock.h"
#include "handles/SSHHandleSFTPSession.h"
#include "handles/SSHHandleSFTPSessionFile.h"
#include "handles/SSHHandleSession.h"

#include <Tarnis/SSHFileSystemSFTP.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <exception>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>

namespace TarnisTest {

/// What recordBroken() records.
struct Broken : std::runtime_error
{
    Broken()
        : std::runtime_error("broken")
    {}
};

/// Records a fatal error for a handle, which only handles themselves may.
inline void recordBroken(FileSystem::HandleObjectCore& handle)
{
    struct Recorder : FileSystem::HandleObjectCore
    {
        using HandleObjectCore::recordFatalError;
    };

    constexpr void (FileSystem::HandleObjectCore::*record)(std::exception_ptr) =
        &Recorder::recordFatalError;
    (handle.*record)(std::make_exception_ptr(Broken()));
}

/// What libssh could have made. A base of its own, so that it outlives the handles.
struct SftpObjects
{
    SftpObjects()
    {
        sftp.session = fakeSession();
        sftp.channel = fakeChannel();
        file.sftp = &sftp;
        file.handle = fakeString();
        directory.sftp = &sftp;
        directory.handle = fakeString();
    }

    /// Attributes with this mode; they live as long as the test.
    sftp_attributes attributesOf(std::uint32_t mode)
    {
        made.emplace_back();
        made.back().permissions = mode;
        made.back().flags = SSH_FILEXFER_ATTR_PERMISSIONS | SSH_FILEXFER_ATTR_ACMODTIME;
        return &made.back();
    }

    /// The same for an entry of a directory.
    sftp_attributes entry(const std::string& name, std::uint32_t mode = 0100644)
    {
        names.push_back(name);
        auto* const attributes = attributesOf(mode);
        attributes->name = names.back().data();
        return attributes;
    }

    sftp_session_struct sftp{};
    sftp_file_struct file{};
    sftp_dir_struct directory{};
    std::deque<sftp_attributes_struct> made;
    std::deque<std::string> names;
};

/// A file system over an SFTP session of the fake libssh.
class SftpFixture : public ::testing::Test, protected SftpObjects
{
protected:
    SftpFixture()
        : handle(Tarnis::makeChildHandle<Tarnis::SSHHandleSFTPSession>(session, &sftp))
        , files(std::shared_ptr<Tarnis::SSHHandleSFTPSession>(handle))
    {
        libssh.connected = 1;
        // No further channel for a queue, which would wait for the fake server's answers.
        ON_CALL(libssh, ssh_channel_open_session).WillByDefault(::testing::Return(SSH_ERROR));
    }

    std::shared_ptr<Tarnis::SSHHandleSFTPSessionFile> openFile()
    {
        EXPECT_CALL(libssh, sftp_open).WillOnce(::testing::Return(&file));
        return handle->openFile("/file", 0, 0);
    }

    ::testing::NiceMock<LibsshMock> libssh;
    Tarnis::SSHHandleSession session{fakeSession()};
    std::shared_ptr<Tarnis::SSHHandleSFTPSession> handle;
    Tarnis::SSHFileSystemSFTP files;
};

} // namespace TarnisTest
