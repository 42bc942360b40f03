#include "handles/SSHHandleSFTPSession.h"

#include "fakes/LibsshMock.h"
#include "handles/SSHHandleSFTPSessionFile.h"
#include "util/Background.h"

#include <FileSystem/HandleFatalError.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include <fcntl.h>

using FileSystem::handle_fatal_error;
using Tarnis::makeChildHandle;
using Tarnis::SSHHandleSession;
using Tarnis::SSHHandleSFTPSession;
using Tarnis::SSHHandleSFTPSessionFile;
using TarnisTest::Background;
using TarnisTest::fakeChannel;
using TarnisTest::fakeSession;
using TarnisTest::fakeString;
using TarnisTest::LibsshMock;
using ::testing::InSequence;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::StrEq;

namespace {

/// An SFTP session and files that libssh could have made. Declared as a base so that they outlive
/// the handles.
struct NativeObjects
{
    NativeObjects()
    {
        sftp.session = fakeSession();
        sftp.channel = fakeChannel();
        file.sftp = &sftp;
        file.handle = fakeString();
    }

    sftp_session_struct sftp{};
    sftp_file_struct file{};
};

class SftpHandle : public ::testing::Test, protected NativeObjects
{
protected:
    std::shared_ptr<SSHHandleSFTPSessionFile> openFile()
    {
        EXPECT_CALL(libssh, sftp_open).WillOnce(Return(&file));
        return handle->openFile("/file", O_RDONLY, 0);
    }

    NiceMock<LibsshMock> libssh;
    SSHHandleSession session{fakeSession()};
    std::shared_ptr<SSHHandleSFTPSession> handle =
        makeChildHandle<SSHHandleSFTPSession>(session, &sftp);
};

} // namespace

TEST_F(SftpHandle, OpensAFileWithTheArgumentsAsGiven)
{
    EXPECT_CALL(libssh, sftp_open(&sftp, StrEq("/a/b c"), O_RDWR | O_CREAT, mode_t{0640}))
        .WillOnce(Return(&file));
    const auto opened = handle->openFile("/a/b c", O_RDWR | O_CREAT, 0640);
    ASSERT_NE(opened, nullptr);
    EXPECT_TRUE(opened->isValid());
    EXPECT_EQ(opened->getResource(), &file);
}

TEST_F(SftpHandle, GivesNoFileWhenTheServerRefuses)
{
    EXPECT_CALL(libssh, sftp_open).WillOnce(Return(nullptr));
    EXPECT_EQ(handle->openFile("/file", O_RDONLY, 0), nullptr);
}

TEST_F(SftpHandle, OpensNothingOnceInvalid)
{
    handle->invalidate();
    EXPECT_CALL(libssh, sftp_open).Times(0);
    EXPECT_THROW(handle->openFile("/file", O_RDONLY, 0), handle_fatal_error);
}

TEST_F(SftpHandle, FreesTheSftpSessionAtInvalidation)
{
    EXPECT_CALL(libssh, sftp_free(&sftp)).Times(1);
    handle->invalidate();
    EXPECT_EQ(handle->getResource(), nullptr);
    handle->deleteMe();
}

TEST_F(SftpHandle, ClosesItsOpenChannelWithoutBlockingBeforeItIsFreed)
{
    int modeWhenClosed = -1;
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_channel_is_open(fakeChannel())).WillOnce(Return(1));
    EXPECT_CALL(libssh, ssh_channel_close(fakeChannel())).WillOnce([&](ssh_channel) {
        modeWhenClosed = libssh.blocking;
        return SSH_OK;
    });
    EXPECT_CALL(libssh, sftp_free(&sftp));
    handle->deleteMe();
    EXPECT_EQ(modeWhenClosed, 0);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_F(SftpHandle, AFileInvalidatedAloneIsClosedOnTheServer)
{
    const auto opened = openFile();
    EXPECT_CALL(libssh, ssh_string_free).Times(0);
    EXPECT_CALL(libssh, sftp_close(&file)).Times(1);
    opened->deleteMe();
    EXPECT_EQ(opened->getResource(), nullptr);
    EXPECT_NE(file.handle, nullptr);
    EXPECT_TRUE(handle->isValid());
}

TEST_F(SftpHandle, AFileThatGoesWithItsSessionAsksTheServerForNothing)
{
    const auto opened = openFile();
    ssh_string handleWhenClosed = fakeString();
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_string_free(fakeString()));
    EXPECT_CALL(libssh, sftp_close(&file)).WillOnce([&](sftp_file closed) {
        // With no handle left, libssh sends no request.
        handleWhenClosed = closed->handle;
        return SSH_OK;
    });
    EXPECT_CALL(libssh, sftp_free(&sftp));
    session.retireChildren();
    EXPECT_EQ(handleWhenClosed, nullptr);
    EXPECT_FALSE(opened->isValid());
}

TEST_F(SftpHandle, AFileIsClosedWellWhenTheServerConfirmsIt)
{
    const auto opened = openFile();
    EXPECT_CALL(libssh, ssh_set_blocking).Times(0);
    EXPECT_CALL(libssh, sftp_close(&file)).WillOnce(Return(SSH_OK));
    EXPECT_TRUE(opened->close());
    EXPECT_NE(file.handle, nullptr);
    EXPECT_FALSE(opened->isValid());
    EXPECT_EQ(opened->getResource(), nullptr);
    EXPECT_TRUE(handle->isValid());
    EXPECT_TRUE(opened->close());
    opened->deleteMe();
    EXPECT_TRUE(opened->close());
    ::testing::Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(SftpHandle, AFileIsNotClosedWellWhenTheServerRefuses)
{
    for (const int answer : {SSH_ERROR, SSH_AGAIN}) {
        const auto opened = openFile();
        EXPECT_CALL(libssh, sftp_close(&file)).WillOnce(Return(answer));
        EXPECT_FALSE(opened->close());
        EXPECT_FALSE(opened->isValid());
        EXPECT_FALSE(opened->close());
        opened->deleteMe();
    }
}

TEST_F(SftpHandle, AFileIsNotClosedWellOnceItWasInvalidated)
{
    const auto opened = openFile();
    EXPECT_CALL(libssh, sftp_close(&file)).Times(1);
    opened->invalidate();
    EXPECT_FALSE(opened->close());
}

TEST_F(SftpHandle, AFileWhoseSessionHasEndedIsNotClosedWellAndAsksForNothing)
{
    const auto opened = openFile();
    session.retireChildren();
    EXPECT_CALL(libssh, sftp_close).Times(0);
    EXPECT_FALSE(opened->close());
}

TEST_F(SftpHandle, AFileThatCannotBeClosedIsInvalidAllTheSame)
{
    const auto opened = openFile();
    EXPECT_CALL(libssh, sftp_close(&file)).WillOnce(::testing::Throw(std::runtime_error("broken")));
    EXPECT_THROW(opened->close(), std::runtime_error);
    EXPECT_FALSE(opened->isValid());
    EXPECT_FALSE(opened->close());
}

TEST_F(SftpHandle, AFileIsClosedUnderTheLock)
{
    const auto opened = openFile();
    std::unique_ptr<Background> other;
    EXPECT_CALL(libssh, sftp_close(&file)).WillOnce([&](auto...) {
        other = std::make_unique<Background>([this] { handle->getLock(); });
        EXPECT_TRUE(other->isHeldUp());
        return SSH_OK;
    });
    EXPECT_TRUE(opened->close());
    EXPECT_TRUE(other->ends());
}

TEST_F(SftpHandle, AFileThatWasAbandonedTwiceIsAbandonedOnce)
{
    const auto opened = openFile();
    EXPECT_CALL(libssh, ssh_string_free(fakeString())).Times(1);
    EXPECT_CALL(libssh, ssh_string_free(nullptr)).Times(::testing::AnyNumber());
    opened->abandon();
    opened->abandon();
    EXPECT_EQ(file.handle, nullptr);
}

TEST_F(SftpHandle, AFileWithoutItsNativeObjectCanBeAbandoned)
{
    const auto opened = openFile();
    opened->invalidate();
    EXPECT_CALL(libssh, ssh_string_free).Times(0);
    EXPECT_NO_THROW(opened->abandon());
}

TEST_F(SftpHandle, AFileGoesBeforeItsSftpSessionAndThatBeforeTheSession)
{
    openFile();
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, sftp_close(&file));
    EXPECT_CALL(libssh, sftp_free(&sftp));
    EXPECT_CALL(libssh, ssh_free(fakeSession()));
    session.deleteMe();
}
