#include "handles/SSHFailure.h"

#include "fakes/LibsshMock.h"
#include "handles/SSHHandleSession.h"

#include <FileSystem/FailureScope.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FailureScope;
using FileSystem::FailureSource;
using Tarnis::noteConnectionLost;
using Tarnis::noteTransportFailure;
using Tarnis::SSHHandleSession;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using ::testing::NiceMock;
using ::testing::Return;

namespace {

class TransportFailure : public ::testing::Test
{
protected:
    TransportFailure()
    {
        libssh.connected = 1;
        ON_CALL(libssh, ssh_get_error).WillByDefault(Return("no room"));
        ON_CALL(libssh, ssh_get_error_code).WillByDefault(Return(SSH_FATAL));
    }

    /// The failure of an operation that does nothing but note one.
    static Failure failureOf(const std::function<bool()>& note)
    {
        FailureScope scope("operation");
        EXPECT_FALSE(scope.result(note()));
        return Failure::last();
    }

    NiceMock<LibsshMock> libssh;
};

} // namespace

TEST_F(TransportFailure, HasLibsshsTextAndNumber)
{
    const Failure failure = failureOf([] { return noteTransportFailure(fakeSession()); });
    EXPECT_EQ(failure.code(), FailureCode::Other);
    EXPECT_EQ(failure.source(), FailureSource::Transport);
    EXPECT_EQ(failure.number(), SSH_FATAL);
    EXPECT_EQ(failure.text(), "no room");
    EXPECT_EQ(failure.operation(), "operation");
}

TEST_F(TransportFailure, OfALostConnectionHasNoTextThatIsMadeUp)
{
    struct Case
    {
        const char* said;
        const char* text;
    };

    libssh.connected = 0;
    for (const auto& [said, text] :
         {Case{"Socket error: No such file or directory", ""},
          Case{"Socket error: Unknown error -1", ""}, Case{"Socket error: Success", ""},
          Case{"Socket error: disconnected", "Socket error: disconnected"},
          Case{"Socket error: Connection reset by peer", "Socket error: Connection reset by peer"},
          Case{"no room", "no room"}}) {
        ON_CALL(libssh, ssh_get_error).WillByDefault(Return(said));
        const Failure failure = failureOf([] { return noteTransportFailure(fakeSession()); });
        EXPECT_EQ(failure.code(), FailureCode::ConnectionLost);
        EXPECT_EQ(failure.text(), text);
    }
}

TEST_F(TransportFailure, IsWhatItsCallerKnowsWhereLibsshDoesNot)
{
    const Failure failure = failureOf(
        [] { return noteTransportFailure(fakeSession(), FailureCode::TimedOut, "a file"); });
    EXPECT_EQ(failure.code(), FailureCode::TimedOut);
    EXPECT_EQ(failure.entry(), "a file");
}

TEST_F(TransportFailure, IsARefusalWhereLibsshCallsItThat)
{
    EXPECT_CALL(libssh, ssh_get_error_code).WillRepeatedly(Return(SSH_REQUEST_DENIED));
    const Failure failure =
        failureOf([] { return noteTransportFailure(fakeSession(), FailureCode::TimedOut); });
    EXPECT_EQ(failure.code(), FailureCode::Denied);
    EXPECT_EQ(failure.number(), SSH_REQUEST_DENIED);
}

TEST_F(TransportFailure, IsALostConnectionOnceThereIsNone)
{
    libssh.connected = 0;
    EXPECT_CALL(libssh, ssh_get_error_code).WillRepeatedly(Return(SSH_REQUEST_DENIED));
    const Failure failure = failureOf([] { return noteTransportFailure(fakeSession()); });
    EXPECT_EQ(failure.code(), FailureCode::ConnectionLost);
    EXPECT_EQ(failure.text(), "no room");
}

TEST_F(TransportFailure, OfNoSessionIsALostConnection)
{
    EXPECT_CALL(libssh, ssh_get_error).Times(0);
    const Failure failure = failureOf([] { return noteTransportFailure(nullptr); });
    EXPECT_EQ(failure.code(), FailureCode::ConnectionLost);
}

TEST_F(TransportFailure, OfAHandleIsThatOfItsSession)
{
    SSHHandleSession session(fakeSession());
    EXPECT_EQ(failureOf([&] { return noteTransportFailure(session); }).text(), "no room");
    session.invalidate();
    EXPECT_EQ(failureOf([&] { return noteTransportFailure(session); }).code(),
              FailureCode::ConnectionLost);
}

TEST_F(TransportFailure, OfWhatHasGoneHasATextOfOurOwn)
{
    const Failure failure = failureOf([] { return noteConnectionLost("the channel is closed"); });
    EXPECT_EQ(failure.code(), FailureCode::ConnectionLost);
    EXPECT_EQ(failure.text(), "the channel is closed");
}
