#include "fakes/LibsshMock.h"

#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHSession.h>

#include <gtest/gtest.h>

using FileSystem::handle_fatal_error;
using Tarnis::SSHSession;
using TarnisTest::fakeChannel;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using ::testing::InSequence;
using ::testing::NiceMock;
using ::testing::Return;

namespace {

class SftpCreation : public ::testing::Test
{
protected:
    SftpCreation()
    {
        sftp.session = fakeSession();
        sftp.channel = fakeChannel(1);
    }

    sftp_session_struct sftp{};
    NiceMock<LibsshMock> libssh;
};

} // namespace

TEST_F(SftpCreation, TriesAChannelThenOpensAndInitialisesInBlockingMode)
{
    SSHSession session;
    libssh.blocking = 0;
    {
        const InSequence inThisOrder;
        EXPECT_CALL(libssh, ssh_channel_new(fakeSession())).WillOnce(Return(fakeChannel()));
        EXPECT_CALL(libssh, sftp_new(fakeSession())).WillOnce([this](ssh_session) {
            EXPECT_EQ(libssh.blocking, 1);
            return &sftp;
        });
        EXPECT_CALL(libssh, sftp_init(&sftp)).WillOnce([this](sftp_session) {
            EXPECT_EQ(libssh.blocking, 1);
            return SSH_OK;
        });
        EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
        EXPECT_CALL(libssh, sftp_free(&sftp));
    }
    const auto files = session.createSFTPFileSystem();
    ASSERT_NE(files, nullptr);
    EXPECT_TRUE(files->isValid());
    EXPECT_EQ(libssh.blocking, 0);
}

TEST_F(SftpCreation, OnAServerThatMayNotAnswerHasItsOwnChannelAndGivesItAway)
{
    SSHSession session;
    libssh.connected = 1;
    EXPECT_CALL(libssh, ssh_get_serverbanner).WillRepeatedly(Return("SSH-2.0-other"));
    EXPECT_CALL(libssh, sftp_new).Times(0);
    EXPECT_CALL(libssh, ssh_channel_request_sftp(fakeChannel()))
        .WillOnce([this](ssh_channel) {
            EXPECT_EQ(libssh.blocking, 0);
            return SSH_AGAIN;
        })
        .WillOnce(Return(SSH_OK));
    EXPECT_CALL(libssh, sftp_new_channel(fakeSession(), fakeChannel())).WillOnce(Return(&sftp));
    EXPECT_CALL(libssh, ssh_channel_free).Times(0);
    EXPECT_CALL(libssh, sftp_free(&sftp));
    EXPECT_NE(session.createSFTPFileSystem(), nullptr);
}

TEST_F(SftpCreation, FailsWhenTheChannelIsClosedInPlaceOfAnAnswer)
{
    SSHSession session;
    libssh.connected = 1;
    EXPECT_CALL(libssh, ssh_get_serverbanner).WillRepeatedly(Return("SSH-2.0-other"));
    EXPECT_CALL(libssh, ssh_channel_request_sftp).WillRepeatedly(Return(SSH_AGAIN));
    // The close has come behind output that nobody has read.
    EXPECT_CALL(libssh, ssh_channel_write).WillOnce(Return(0)).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, sftp_new_channel).Times(0);
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
    EXPECT_EQ(session.createSFTPFileSystem(), nullptr);
}

TEST_F(SftpCreation, FailsWithoutAChannel)
{
    SSHSession session;
    EXPECT_CALL(libssh, ssh_channel_new).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_new).Times(0);
    EXPECT_EQ(session.createSFTPFileSystem(), nullptr);
}

TEST_F(SftpCreation, FailsWhenTheServerRefusesAndReleasesTheChannel)
{
    SSHSession session;
    EXPECT_CALL(libssh, sftp_new).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, sftp_init).Times(0);
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel())).Times(1);
    EXPECT_EQ(session.createSFTPFileSystem(), nullptr);
}

TEST_F(SftpCreation, FailsWithoutTheSubsystemAndFreesTheSftpSession)
{
    SSHSession session;
    EXPECT_CALL(libssh, sftp_new).WillOnce(Return(&sftp));
    EXPECT_CALL(libssh, sftp_init).WillOnce(Return(-1));
    EXPECT_CALL(libssh, sftp_free(&sftp)).Times(1);
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel())).Times(1);
    EXPECT_EQ(session.createSFTPFileSystem(), nullptr);
    ::testing::Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(SftpCreation, ThrowsWithoutASession)
{
    EXPECT_CALL(libssh, ssh_new).WillOnce(Return(nullptr));
    SSHSession session;
    EXPECT_THROW(static_cast<void>(session.createSFTPFileSystem()), handle_fatal_error);
}
