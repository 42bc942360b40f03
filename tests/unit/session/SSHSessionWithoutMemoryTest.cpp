// What is left of a session when libssh has no memory for its objects.

#include "fakes/LibsshMock.h"

#include <FileSystem/Failure.h>
#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

using FileSystem::handle_fatal_error;
using Tarnis::RemoteSessionState;
using Tarnis::SSHExecuteResult;
using Tarnis::SSHSession;
using TarnisTest::LibsshMock;
using ::testing::AnyNumber;
using ::testing::IsNull;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::StrictMock;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

std::string textThrownBy(const std::function<void()>& operation)
{
    try {
        operation();
    } catch (const handle_fatal_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

class SessionWithoutObject : public ::testing::Test
{
protected:
    SessionWithoutObject()
    {
        EXPECT_CALL(libssh, ssh_new).WillOnce(Return(nullptr));
        // libssh ignores a null session here.
        EXPECT_CALL(libssh, ssh_set_blocking(IsNull(), _)).Times(AnyNumber());
    }

    StrictMock<LibsshMock> libssh;
};

class SessionWithoutChannel : public ::testing::Test
{
protected:
    SessionWithoutChannel() { ON_CALL(libssh, ssh_channel_new).WillByDefault(Return(nullptr)); }

    NiceMock<LibsshMock> libssh;
};

} // namespace

TEST_F(SessionWithoutObject, ThrowsAtConnectAndStaysConnecting)
{
    SSHSession session;
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
    EXPECT_EQ(textThrownBy([&] { static_cast<void>(session.connect()); }), "invalid");
    EXPECT_EQ(session.getState(), RemoteSessionState::Connecting);
}

TEST_F(SessionWithoutObject, RefusesLaterConnects)
{
    SSHSession session;
    EXPECT_THROW(static_cast<void>(session.connect()), handle_fatal_error);
    EXPECT_FALSE(session.connect());
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::Connecting);
}

TEST_F(SessionWithoutObject, ThrowsAtDisconnectAndStaysDisconnecting)
{
    SSHSession session;
    EXPECT_THROW(static_cast<void>(session.connect()), handle_fatal_error);
    EXPECT_EQ(textThrownBy([&] { session.disconnect(); }), "invalid");
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnecting);
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnecting);
}

TEST_F(SessionWithoutObject, HasNothingToDisconnectAtFirst)
{
    SSHSession session;
    EXPECT_FALSE(session.disconnect());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(SessionWithoutObject, HasAnEmptyLastError)
{
    const SSHSession session;
    EXPECT_EQ(session.getLastError(), "");
}

TEST_F(SessionWithoutObject, IsDestroyedSilently)
{
    // Strict: a call of any function with the session that is not there fails the test.
    SSHSession session;
    EXPECT_THROW(static_cast<void>(session.connect()), handle_fatal_error);
    EXPECT_FALSE(session.isConnected());
}

TEST_F(SessionWithoutObject, ThrowsAtEveryOption)
{
    SSHSession session;
    EXPECT_EQ(textThrownBy([&] { session.setHostName("host"); }), "invalid");
    EXPECT_EQ(textThrownBy([&] { session.getHostName(); }), "invalid");
    EXPECT_EQ(textThrownBy([&] { session.setUserName("user"); }), "invalid");
    EXPECT_EQ(textThrownBy([&] { session.getUserName(); }), "invalid");
    EXPECT_EQ(textThrownBy([&] { session.setPortNumber(22); }), "invalid");
    EXPECT_EQ(textThrownBy([&] { session.getPortNumber(); }), "invalid");
    EXPECT_EQ(textThrownBy([&] { session.setKnownHostsFile("file"); }), "invalid");
    EXPECT_EQ(textThrownBy([&] { session.getKnownHostsFile(); }), "invalid");
    EXPECT_EQ(textThrownBy([&] { session.getPublicServerKeyB64(); }), "invalid");
    EXPECT_EQ(textThrownBy([&] { session.getPublicServerKeyFingerprint(); }), "invalid");
    EXPECT_EQ(textThrownBy([&] { session.getOfferedMethods(); }), "invalid");
    EXPECT_EQ(session.getAlgorithmMismatch(), std::nullopt);
}

TEST_F(SessionWithoutObject, SaysThatMemoryIsMissing)
{
    SSHSession session;
    EXPECT_THROW(session.setHostName("host"), handle_fatal_error);
    const auto failure = FileSystem::Failure::last();
    EXPECT_EQ(failure.code(), std::errc::not_enough_memory);
    EXPECT_EQ(failure.operation(), "setHostName");
    EXPECT_THROW(static_cast<void>(session.connect()), handle_fatal_error);
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::NoResources);
}

TEST_F(SessionWithoutObject, MakesNoProcess)
{
    SSHSession session;
    EXPECT_EQ(textThrownBy([&] { static_cast<void>(session.createProcess("command")); }),
              "invalid");
    EXPECT_EQ(session.execute("command").outcome, SSHExecuteResult::Outcome::NotStarted);
}

TEST_F(SessionWithoutObject, IsNotConnectedInAnyWay)
{
    const SSHSession session;
    EXPECT_FALSE(session.isConnected());
    EXPECT_FALSE(session.isAuthenticating());
    EXPECT_FALSE(session.isAuthenticated());
}

TEST_F(SessionWithoutObject, CanBeInterruptedAndGivenAnInterface)
{
    SSHSession session;
    EXPECT_NO_THROW(session.interrupt());
    EXPECT_NO_THROW(session.attachSSHSessionInterface(nullptr));
    EXPECT_EQ(textThrownBy([&] { session.silentDisconnect(); }), "invalid");
}

TEST_F(SessionWithoutChannel, MakesNoProcess)
{
    SSHSession session;
    EXPECT_EQ(session.createProcess("command"), nullptr);
}
