#include "handles/SSHHandleSession.h"

#include "fakes/LibsshMock.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSFTPSession.h"

#include <gtest/gtest.h>

#include <memory>

using Tarnis::makeChildHandle;
using Tarnis::SSHHandleChannel;
using Tarnis::SSHHandleSession;
using Tarnis::SSHHandleSFTPSession;
using TarnisTest::fakeChannel;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using ::testing::InSequence;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::StrictMock;

namespace {

class SessionHandle : public ::testing::Test
{
protected:
    std::shared_ptr<SSHHandleChannel> makeChannel(int number = 0)
    {
        return makeChildHandle<SSHHandleChannel>(session, fakeChannel(number));
    }

    NiceMock<LibsshMock> libssh;
    sftp_session_struct sftp{}; // Before the session, which ends it.
    SSHHandleSession session{fakeSession()};
};

} // namespace

TEST_F(SessionHandle, OwnsASession)
{
    EXPECT_TRUE(session.isValid());
    EXPECT_EQ(session.getResource(), fakeSession());
}

TEST_F(SessionHandle, KeepsAPointerOfTheCallers)
{
    EXPECT_EQ(session.getSessionInterface(), nullptr);
    int callersOwn = 0;
    auto* const sessionInterface = reinterpret_cast<Tarnis::SSHSessionInterface*>(&callersOwn);
    session.setSessionInterface(sessionInterface);
    EXPECT_EQ(session.getSessionInterface(), sessionInterface);
    session.setSessionInterface(nullptr);
    EXPECT_EQ(session.getSessionInterface(), nullptr);
}

TEST_F(SessionHandle, FreesTheSessionAtInvalidation)
{
    EXPECT_CALL(libssh, ssh_free(fakeSession()));
    session.invalidate();
    EXPECT_FALSE(session.isValid());
    EXPECT_EQ(session.getResource(), nullptr);
}

TEST_F(SessionHandle, DisconnectsAConnectedSessionBeforeItIsFreed)
{
    libssh.connected = 1;
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_disconnect(fakeSession()));
    EXPECT_CALL(libssh, ssh_free(fakeSession()));
    session.deleteMe();
}

TEST(SessionHandleLife, FreesTheSessionAtDestruction)
{
    NiceMock<LibsshMock> libssh;
    EXPECT_CALL(libssh, ssh_free(fakeSession()));
    const SSHHandleSession session(fakeSession());
}

TEST(SessionHandleLife, WithoutASessionIsInvalidAndCallsNothing)
{
    const StrictMock<LibsshMock> libssh;
    SSHHandleSession session(nullptr);
    EXPECT_FALSE(session.isValid());
    session.retireChildren();
    session.deleteMe();
    EXPECT_FALSE(session.isValid());
}

TEST_F(SessionHandle, FreesItsChannelsBeforeTheSession)
{
    const auto channel = makeChannel();
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
    EXPECT_CALL(libssh, ssh_free(fakeSession()));
    session.invalidate();
    EXPECT_FALSE(channel->isValid());
}

TEST_F(SessionHandle, RetiresItsChildrenAndStaysValid)
{
    const auto one = makeChannel(0);
    const auto other = makeChannel(1);
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel(0)));
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel(1)));
    EXPECT_CALL(libssh, ssh_free).Times(0);
    session.retireChildren();
    EXPECT_FALSE(one->isValid());
    EXPECT_FALSE(other->isValid());
    EXPECT_TRUE(session.isValid());
    ::testing::Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(SessionHandle, RetiresItsChildrenWithoutBlocking)
{
    makeChannel();
    int modeWhenFreed = -1;
    EXPECT_CALL(libssh, ssh_channel_free).WillOnce([&](ssh_channel) {
        modeWhenFreed = libssh.blocking;
    });
    session.retireChildren();
    EXPECT_EQ(modeWhenFreed, 0);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_F(SessionHandle, TakesAFreshSessionAfterTheOldOnesChildrenAreGone)
{
    const auto channel = makeChannel();
    {
        const InSequence inThisOrder;
        EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
        EXPECT_CALL(libssh, ssh_free(fakeSession(0)));
    }
    session.replaceSession(fakeSession(1));
    EXPECT_EQ(session.getResource(), fakeSession(1));
    EXPECT_TRUE(session.isValid());
    EXPECT_FALSE(channel->isValid());
    EXPECT_CALL(libssh, ssh_free(fakeSession(1)));
}

TEST_F(SessionHandle, WithoutChildrenHasNoUnreadOutput)
{
    EXPECT_FALSE(session.mayHaveUnreadOutput());
}

TEST_F(SessionHandle, HasUnreadOutputUntilEveryChannelIsAtItsEnd)
{
    const auto one = makeChannel(0);
    const auto other = makeChannel(1);
    one->markOpened();
    other->markOpened();
    EXPECT_CALL(libssh, ssh_channel_is_eof(fakeChannel(0))).WillRepeatedly(Return(1));
    EXPECT_CALL(libssh, ssh_channel_is_eof(fakeChannel(1)))
        .WillOnce(Return(0))
        .WillRepeatedly(Return(1));
    EXPECT_TRUE(session.mayHaveUnreadOutput());
    EXPECT_FALSE(session.mayHaveUnreadOutput());
}

TEST_F(SessionHandle, HasNoUnreadOutputOnAChannelThatWasNotOpened)
{
    const auto channel = makeChannel(0);
    EXPECT_FALSE(session.mayHaveUnreadOutput());
    channel->markOpened();
    EXPECT_TRUE(session.mayHaveUnreadOutput());
}

TEST_F(SessionHandle, HasNoUnreadOutputOnAnSftpSession)
{
    sftp.session = fakeSession();
    const auto handle = makeChildHandle<SSHHandleSFTPSession>(session, &sftp);
    EXPECT_FALSE(session.mayHaveUnreadOutput());
}
