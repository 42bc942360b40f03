#include "fakes/LibsshMock.h"

#include <Tarnis/SessionBlockingGuard.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

using Tarnis::SessionBlockingGuard;
using TarnisTest::fakeChannel;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::StrictMock;
using ::testing::Throw;

namespace {

class BlockingGuard : public ::testing::Test
{
protected:
    BlockingGuard() { sftp.session = fakeSession(); }

    /// What a guard that only remembers the mode does.
    void expectRememberedAndRestored(int mode)
    {
        EXPECT_CALL(libssh, ssh_is_blocking(fakeSession())).WillOnce(Return(mode));
        EXPECT_CALL(libssh, ssh_set_blocking(fakeSession(), mode));
    }

    /// What a guard that sets a mode does.
    void expectSetAndRestored(int formerMode, int mode)
    {
        EXPECT_CALL(libssh, ssh_is_blocking(fakeSession())).WillOnce(Return(formerMode));
        EXPECT_CALL(libssh, ssh_set_blocking(fakeSession(), mode));
        EXPECT_CALL(libssh, ssh_set_blocking(fakeSession(), formerMode));
    }

    void expectSessionLookedUp()
    {
        EXPECT_CALL(libssh, ssh_channel_get_session(fakeChannel())).WillOnce(Return(fakeSession()));
    }

    const InSequence inThisOrder;
    StrictMock<LibsshMock> libssh;
    sftp_session_struct sftp{};
};

} // namespace

TEST_F(BlockingGuard, RemembersASessionsModeAndRestoresIt)
{
    expectRememberedAndRestored(1);
    const SessionBlockingGuard guard(fakeSession());
}

TEST_F(BlockingGuard, SetsASessionsModeAndRestoresTheFormerOne)
{
    expectSetAndRestored(1, 0);
    const SessionBlockingGuard guard(fakeSession(), 0);
}

TEST_F(BlockingGuard, RestoresNonBlockingModeToo)
{
    expectSetAndRestored(0, 1);
    const SessionBlockingGuard guard(fakeSession(), 1);
}

TEST_F(BlockingGuard, FindsTheSessionOfAChannel)
{
    expectSessionLookedUp();
    expectRememberedAndRestored(1);
    const SessionBlockingGuard guard(fakeChannel());
}

TEST_F(BlockingGuard, SetsTheModeOfAChannelsSession)
{
    expectSessionLookedUp();
    expectSetAndRestored(1, 0);
    const SessionBlockingGuard guard(fakeChannel(), 0);
}

TEST_F(BlockingGuard, FindsTheSessionOfAnSftpSession)
{
    expectRememberedAndRestored(1);
    const SessionBlockingGuard guard(&sftp);
}

TEST_F(BlockingGuard, SetsTheModeOfAnSftpSessionsSession)
{
    expectSetAndRestored(1, 0);
    const SessionBlockingGuard guard(&sftp, 0);
}

TEST_F(BlockingGuard, CallsNothingForNull)
{
    ssh_session const noSession = nullptr;
    ssh_channel const noChannel = nullptr;
    sftp_session const noSftp = nullptr;
    EXPECT_NO_THROW({
        const SessionBlockingGuard session(noSession);
        const SessionBlockingGuard sessionSet(noSession, 0);
        const SessionBlockingGuard channel(noChannel);
        const SessionBlockingGuard channelSet(noChannel, 0);
        const SessionBlockingGuard sftpSession(noSftp);
        const SessionBlockingGuard sftpSessionSet(noSftp, 0);
    });
}

TEST_F(BlockingGuard, CallsNothingForAChannelWithoutASession)
{
    EXPECT_CALL(libssh, ssh_channel_get_session(fakeChannel())).WillOnce(Return(nullptr));
    const SessionBlockingGuard guard(fakeChannel(), 0);
}

TEST_F(BlockingGuard, LetsNoExceptionOutOfItsDestructor)
{
    EXPECT_CALL(libssh, ssh_is_blocking(fakeSession())).WillOnce(Return(1));
    EXPECT_CALL(libssh, ssh_set_blocking(fakeSession(), 1))
        .WillOnce(Throw(std::runtime_error("trouble")));
    EXPECT_NO_THROW(const SessionBlockingGuard guard(fakeSession()));
}

TEST_F(BlockingGuard, IsDestroyedWholeThroughAPointerToTheBase)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<SessionBlockingGuard>);
    EXPECT_FALSE(std::is_copy_constructible_v<SessionBlockingGuard>);
}
