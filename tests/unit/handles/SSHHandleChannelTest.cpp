#include "handles/SSHHandleChannel.h"

#include "fakes/LibsshMock.h"
#include "handles/SSHChannelClose.h"

#include <FileSystem/HandleFatalError.h>

#include <gtest/gtest.h>

#include <memory>

using FileSystem::handle_fatal_error;
using Tarnis::queueChannelClose;
using Tarnis::SSHHandleChannel;
using Tarnis::SSHHandleSession;
using TarnisTest::fakeChannel;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using ::testing::InSequence;
using ::testing::Mock;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::StrictMock;

namespace {

class ChannelHandle : public ::testing::Test
{
protected:
    NiceMock<LibsshMock> libssh;
    SSHHandleSession session{fakeSession()};
};

class LiveChannelHandle : public ChannelHandle
{
protected:
    std::shared_ptr<SSHHandleChannel> channel = SSHHandleChannel::create(session);
};

} // namespace

TEST_F(ChannelHandle, IsMadeOnASessionAndKeptByIt)
{
    EXPECT_CALL(libssh, ssh_channel_new(fakeSession())).WillOnce(Return(fakeChannel(1)));
    const auto channel = SSHHandleChannel::create(session);
    ASSERT_NE(channel, nullptr);
    EXPECT_TRUE(channel->isValid());
    EXPECT_EQ(channel->getResource(), fakeChannel(1));
    session.retireChildren();
    EXPECT_FALSE(channel->isValid());
}

TEST_F(LiveChannelHandle, ListensForTheExitUntilItsChannelIsReleased)
{
    ssh_channel_callbacks exit = nullptr;
    EXPECT_CALL(libssh, ssh_add_channel_callbacks(fakeChannel(), ::testing::_))
        .WillOnce(::testing::DoAll(::testing::SaveArg<1>(&exit), Return(SSH_OK)));
    channel->watchExit();
    channel->watchExit();
    ASSERT_NE(exit, nullptr);
    exit->channel_exit_status_function(fakeSession(), fakeChannel(), -2, exit->userdata);
    exit->channel_exit_signal_function(fakeSession(), fakeChannel(), "TERM", 0, "", "",
                                       exit->userdata);
    EXPECT_EQ(channel->getExit()->status(), -2);
    EXPECT_EQ(channel->getExit()->signal(), "TERM");
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_remove_channel_callbacks(fakeChannel(), exit));
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
    channel->invalidate();
    EXPECT_EQ(channel->getExit(), nullptr);
}

TEST_F(ChannelHandle, IsNullWhenLibsshHasNoChannel)
{
    EXPECT_CALL(libssh, ssh_channel_new).WillOnce(Return(nullptr));
    EXPECT_EQ(SSHHandleChannel::create(session), nullptr);
}

TEST_F(ChannelHandle, CannotBeMadeOnAnInvalidSession)
{
    session.invalidate();
    EXPECT_CALL(libssh, ssh_channel_new).Times(0);
    EXPECT_THROW(SSHHandleChannel::create(session), handle_fatal_error);
}

TEST_F(LiveChannelHandle, ClosesAnOpenChannelAndFreesItWithoutBlocking)
{
    int modeWhenClosed = -1;
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_channel_is_open(fakeChannel())).WillOnce(Return(1));
    EXPECT_CALL(libssh, ssh_channel_close(fakeChannel())).WillOnce([&](ssh_channel) {
        modeWhenClosed = libssh.blocking;
        return SSH_OK;
    });
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
    channel->invalidate();
    EXPECT_EQ(modeWhenClosed, 0);
    EXPECT_EQ(libssh.blocking, 1);
    EXPECT_EQ(channel->getResource(), nullptr);
}

TEST_F(LiveChannelHandle, OnlyFreesAChannelThatIsNotOpen)
{
    EXPECT_CALL(libssh, ssh_channel_is_open).WillRepeatedly(Return(0));
    EXPECT_CALL(libssh, ssh_channel_close).Times(0);
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
    channel->deleteMe();
    EXPECT_FALSE(channel->isValid());
}

TEST_F(LiveChannelHandle, IsFreedOnceThoughItIsInvalidatedTwice)
{
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel())).Times(1);
    channel->invalidate();
    channel->deleteMe();
}

TEST_F(ChannelHandle, FreesItsChannelAtDestruction)
{
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
    const SSHHandleChannel channel(&session, fakeChannel());
}

TEST_F(LiveChannelHandle, RenewalPutsANewChannelInPlace)
{
    EXPECT_CALL(libssh, ssh_channel_new(fakeSession())).WillOnce(Return(fakeChannel(1)));
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel(0)));
    EXPECT_TRUE(channel->renew());
    EXPECT_EQ(channel->getResource(), fakeChannel(1));
    EXPECT_TRUE(channel->isValid());
    Mock::VerifyAndClearExpectations(&libssh);
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel(1)));
    channel->invalidate();
}

TEST_F(LiveChannelHandle, RenewalWithoutMemoryLeavesTheOldChannel)
{
    EXPECT_CALL(libssh, ssh_channel_new).WillOnce(Return(nullptr));
    EXPECT_CALL(libssh, ssh_channel_free).Times(0);
    EXPECT_FALSE(channel->renew());
    EXPECT_EQ(channel->getResource(), fakeChannel());
    Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(LiveChannelHandle, CannotBeRenewedOnceInvalid)
{
    channel->invalidate();
    EXPECT_CALL(libssh, ssh_channel_new).Times(0);
    EXPECT_FALSE(channel->renew());
}

TEST(ChannelClose, OfNullCallsNothing)
{
    const StrictMock<LibsshMock> libssh;
    EXPECT_NO_THROW(queueChannelClose(nullptr));
}

TEST(ChannelClose, OfAClosedChannelSendsNothing)
{
    StrictMock<LibsshMock> libssh;
    EXPECT_CALL(libssh, ssh_channel_is_open(fakeChannel())).WillOnce(Return(0));
    queueChannelClose(fakeChannel());
}

TEST(ChannelClose, IsAskedForAgainWhenOnlyTheEndOfFileWasQueued)
{
    StrictMock<LibsshMock> libssh;
    EXPECT_CALL(libssh, ssh_channel_is_open(fakeChannel())).WillOnce(Return(1));
    EXPECT_CALL(libssh, ssh_channel_close(fakeChannel()))
        .Times(2)
        .WillRepeatedly(Return(SSH_AGAIN));
    queueChannelClose(fakeChannel());
}

TEST(ChannelClose, ThatFailsIsNotRepeated)
{
    StrictMock<LibsshMock> libssh;
    EXPECT_CALL(libssh, ssh_channel_is_open(fakeChannel())).WillOnce(Return(1));
    EXPECT_CALL(libssh, ssh_channel_close(fakeChannel())).WillOnce(Return(SSH_ERROR));
    queueChannelClose(fakeChannel());
}
