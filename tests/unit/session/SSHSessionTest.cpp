#include "fakes/LibsshMock.h"
#include "handles/SSHCallLimits.h"
#include "handles/SSHHandleSession.h"
#include "session/ProcessorAes.h"
#include "support/LoopbackSocket.h"
#include "support/UniqueFd.h"
#include "util/Background.h"
#include "util/RetryLimit.h"

#include <FileSystem/Failure.h>
#include <FileSystem/HandleFatalError.h>
#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/SSHFailureCode.h>
#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

using FileSystem::Failure;
using FileSystem::handle_fatal_error;
using Tarnis::hasAesInstructions;
using Tarnis::HostAuthenticatorHostKey;
using Tarnis::HostAuthenticatorNone;
using Tarnis::RemoteSessionState;
using Tarnis::SSHCallLimits;
using Tarnis::SSHExecuteResult;
using Tarnis::SSHSession;
using Tarnis::UserAuthenticatorNone;
using Tarnis::UserAuthenticatorPassword;
using TarnisTest::acceptConnection;
using TarnisTest::Background;
using TarnisTest::connectToLoopback;
using TarnisTest::fakeChannel;
using TarnisTest::fakeKey;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using TarnisTest::listenOnLoopback;
using TarnisTest::localPort;
using TarnisTest::RetryLimit;
using TarnisTest::UniqueFd;
using ::testing::AnyNumber;
using ::testing::DoAll;
using ::testing::DoDefault;
using ::testing::InSequence;
using ::testing::Mock;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::SetArgPointee;
using ::testing::Throw;

namespace TarnisTest {

// What a session keeps to itself and no operation shows.
Tarnis::SSHHandleSession& handleOf(SSHSession& session);
bool isBlocking(const SSHSession& session);

// An explicit instantiation may name private members.
template <auto Handle, auto IsBlocking>
struct SessionInsides
{
    friend Tarnis::SSHHandleSession& handleOf(SSHSession& session) { return *(session.*Handle); }

    friend bool isBlocking(const SSHSession& session) { return (session.*IsBlocking)(); }
};

template struct SessionInsides<&SSHSession::session_, &SSHSession::isBlocking>;

} // namespace TarnisTest

using TarnisTest::handleOf;
using TarnisTest::isBlocking;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

const std::string textWithNul("cut\0off", 7);

// Matchers of what ssh_options_set is given.

MATCHER_P(PointsToBool, value, "")
{
    return *static_cast<const bool*>(arg) == value;
}

MATCHER_P(PointsToInt, value, "")
{
    return *static_cast<const int*>(arg) == value;
}

MATCHER_P(PointsToUnsigned, value, "")
{
    return *static_cast<const unsigned int*>(arg) == value;
}

MATCHER_P(PointsToText, text, "")
{
    return std::string(static_cast<const char*>(arg)) == text;
}

// The option of either direction.
MATCHER(IsCipherList, "")
{
    return arg == SSH_OPTIONS_CIPHERS_C_S || arg == SSH_OPTIONS_CIPHERS_S_C;
}

// Of a connection that has gone; the text is that of an errno which has nothing to do with it.
constexpr const char* madeUpError = "Socket error: No such file or directory";

class Session : public ::testing::Test
{
protected:
    /// Depends on the processor. For tests that are about other options.
    void mayOrderCiphers()
    {
        EXPECT_CALL(libssh, ssh_options_set(_, IsCipherList(), _)).Times(AnyNumber());
    }

    NiceMock<LibsshMock> libssh;
    SSHSession session;
};

class ConnectedSession : public Session
{
protected:
    ConnectedSession() { EXPECT_TRUE(session.connect()); }
};

class AuthenticatedSession : public ConnectedSession
{
protected:
    AuthenticatedSession()
    {
        static_cast<void>(session.hostAuthenticate(HostAuthenticatorNone()));
        static_cast<void>(session.userAuthenticate(UserAuthenticatorNone()));
        EXPECT_EQ(session.getState(), RemoteSessionState::Authenticated);
    }
};

/// A session whose connection has a socket: `client`, with `server` at the other end.
class SessionWithSocket : public Session
{
protected:
    SessionWithSocket()
    {
        ON_CALL(libssh, ssh_get_fd).WillByDefault(Return(client.get()));
        EXPECT_TRUE(session.connect());
    }

    int option(int level, int name) const
    {
        int value = -1;
        socklen_t size = sizeof value;
        EXPECT_EQ(::getsockopt(client.get(), level, name, &value, &size), 0);
        return value;
    }

    void peerCloses()
    {
        server.reset();
        pollfd end{client.get(), POLLRDHUP, 0};
        ASSERT_EQ(::poll(&end, 1, 60'000), 1);
    }

    UniqueFd listener = listenOnLoopback();
    UniqueFd client = connectToLoopback(localPort(listener));
    UniqueFd server = acceptConnection(listener);
};

} // namespace

TEST(SessionLife, BeginsDisconnectedWithoutAnyOption)
{
    NiceMock<LibsshMock> libssh;
    EXPECT_CALL(libssh, ssh_new).Times(1).WillRepeatedly(DoDefault());
    EXPECT_CALL(libssh, ssh_options_set).Times(0);
    EXPECT_CALL(libssh, ssh_connect).Times(0);
    SSHSession session;
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
    EXPECT_FALSE(session.isConnected());
}

TEST(SessionLife, EndsWithTheSessionFreed)
{
    NiceMock<LibsshMock> libssh;
    EXPECT_CALL(libssh, ssh_disconnect).Times(0);
    EXPECT_CALL(libssh, ssh_free(fakeSession())).Times(1);
    const SSHSession session;
}

TEST(SessionLife, EndsWithADisconnectWhenConnected)
{
    NiceMock<LibsshMock> libssh;
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_disconnect(fakeSession()));
    EXPECT_CALL(libssh, ssh_free(fakeSession()));
    SSHSession session;
    static_cast<void>(session.connect());
}

TEST(SessionLife, EndsSilentlyThoughTheDisconnectThrows)
{
    NiceMock<LibsshMock> libssh;
    EXPECT_CALL(libssh, ssh_disconnect).WillRepeatedly(Throw(std::runtime_error("trouble")));
    EXPECT_CALL(libssh, ssh_free(fakeSession())).Times(1);
    SSHSession session;
    static_cast<void>(session.connect());
}

TEST(SessionLife, ProcessesMayOutliveTheSession)
{
    NiceMock<LibsshMock> libssh;
    auto session = std::make_unique<SSHSession>();
    static_cast<void>(session->connect());
    const auto process = session->createProcess("command");
    {
        const InSequence inThisOrder;
        EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
        EXPECT_CALL(libssh, ssh_disconnect(fakeSession()));
        EXPECT_CALL(libssh, ssh_free(fakeSession()));
    }
    session.reset();
    EXPECT_FALSE(process->isValid());
    EXPECT_THROW(static_cast<void>(process->start()), handle_fatal_error);
    EXPECT_THROW(process->readAll(false), handle_fatal_error);
}

TEST_F(Session, ConnectsWithoutConfigurationFilesAndWithoutDelay)
{
    mayOrderCiphers();
    const InSequence inThisOrder;
    EXPECT_CALL(libssh,
                ssh_options_set(fakeSession(), SSH_OPTIONS_PROCESS_CONFIG, PointsToBool(false)));
    EXPECT_CALL(libssh, ssh_options_set(fakeSession(), SSH_OPTIONS_NODELAY, PointsToInt(1)));
    EXPECT_CALL(libssh, ssh_connect(fakeSession())).WillOnce(DoDefault());
    EXPECT_TRUE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::HostAuthenticating);
}

TEST_F(Session, OrdersCiphersForThisProcessorBeforeItConnects)
{
    const int count = hasAesInstructions() ? 2 : 0;
    ON_CALL(libssh, ssh_version).WillByDefault(Return("0.11.5"));
    EXPECT_CALL(libssh, ssh_options_set).Times(AnyNumber());
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_options_set(fakeSession(), IsCipherList(), _)).Times(count);
    EXPECT_CALL(libssh, ssh_connect(fakeSession())).WillOnce(DoDefault());
    EXPECT_TRUE(session.connect());
}

TEST_F(Session, ConnectsThoughLibsshTakesNoOrderOfCiphers)
{
    EXPECT_CALL(libssh, ssh_options_set).Times(AnyNumber());
    EXPECT_CALL(libssh, ssh_options_set(_, IsCipherList(), _)).WillRepeatedly(Return(SSH_ERROR));
    EXPECT_TRUE(session.connect());
}

TEST_F(Session, DoesNotConnectWhenItCannotKeepTheConfigurationFilesOut)
{
    EXPECT_CALL(libssh, ssh_options_set(_, SSH_OPTIONS_PROCESS_CONFIG, _))
        .WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_connect).Times(0);
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(Session, ConnectsInNonBlockingModeAndRestoresTheFormerOne)
{
    int mode = -1;
    EXPECT_CALL(libssh, ssh_connect).WillOnce([&](ssh_session) {
        mode = libssh.blocking;
        return SSH_ERROR;
    });
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(libssh.blocking, 1);
}

class NamedSession : public Session
{
protected:
    NamedSession()
    {
        ON_CALL(libssh, ssh_options_get(_, SSH_OPTIONS_HOST, _))
            .WillByDefault(DoAll(SetArgPointee<2>(name_), Return(SSH_OK)));
        ON_CALL(libssh, ssh_options_copy)
            .WillByDefault(DoAll(SetArgPointee<1>(fakeSession(1)), Return(SSH_OK)));
    }

private:
    char name_[5] = "host";
};

// That libssh itself has given the key exchange up may get lost behind a text about the socket.
TEST_F(NamedSession, IsTriedOnceMoreForAReasonThatIsForgotten)
{
    constexpr const char* reason =
        "kex error : no match for method mac algo client->server: server [a], client [b]";
    EXPECT_CALL(libssh, ssh_connect(fakeSession(0))).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_connect(fakeSession(1))).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_get_error(fakeSession(0))).WillRepeatedly(Return(madeUpError));
    EXPECT_CALL(libssh, ssh_get_error(fakeSession(1))).WillRepeatedly(Return(reason));
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(Failure::last().code(), Tarnis::SSHFailureCode::NoCommonAlgorithm);
    EXPECT_TRUE(session.getAlgorithmMismatch().has_value());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(NamedSession, IsTriedNoThirdTimeForItsReason)
{
    EXPECT_CALL(libssh, ssh_connect).Times(2).WillRepeatedly(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_get_error).WillRepeatedly(Return(madeUpError));
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(Failure::last().code(), Tarnis::SSHFailureCode::Lost);
    EXPECT_EQ(Failure::last().source(), FileSystem::FailureSource::Transport);
    EXPECT_EQ(Failure::last().text(), "");
}

TEST_F(NamedSession, IsTriedOnceWhereTheReasonIsKnown)
{
    EXPECT_CALL(libssh, ssh_connect).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_get_error).WillRepeatedly(Return("Socket error: disconnected"));
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(Failure::last().code(), Tarnis::SSHFailureCode::Lost);
}

TEST_F(Session, IsConnectingWhileItConnects)
{
    RemoteSessionState during{};
    bool secondConnect = true;
    EXPECT_CALL(libssh, ssh_connect).WillOnce([&](ssh_session) {
        during = session.getState();
        secondConnect = session.connect();
        return SSH_OK;
    });
    EXPECT_TRUE(session.connect());
    EXPECT_EQ(during, RemoteSessionState::Connecting);
    EXPECT_FALSE(secondConnect);
}

TEST_F(Session, HoldsItsLockWhileItConnects)
{
    std::unique_ptr<Background> other;
    bool heldUp = false;
    EXPECT_CALL(libssh, ssh_connect).WillOnce([&](ssh_session) {
        other = std::make_unique<Background>([this] { session.setHostName("other"); });
        heldUp = other->isHeldUp();
        return SSH_ERROR;
    });
    static_cast<void>(session.connect());
    EXPECT_TRUE(heldUp);
    EXPECT_TRUE(other->ends());
}

TEST_F(Session, RepeatsTheConnectWhileItIsNotDone)
{
    EXPECT_CALL(libssh, ssh_connect(fakeSession()))
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce(DoDefault());
    EXPECT_TRUE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::HostAuthenticating);
}

TEST_F(Session, GivesUpAConnectThatIsNeverDone)
{
    const RetryLimit none(SSHCallLimits::Ticks::zero());
    int tries = 0;
    EXPECT_CALL(libssh, ssh_connect).WillRepeatedly([&](ssh_session) {
        // A call in blocking mode is no try: it is made for libssh's message.
        tries += libssh.blocking == 0 ? 1 : 0;
        return SSH_AGAIN;
    });
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(tries, 2);
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(Session, IsDisconnectedAfterAFailedConnect)
{
    EXPECT_CALL(libssh, ssh_connect).WillOnce(Return(SSH_ERROR));
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
    EXPECT_FALSE(session.disconnect());
}

TEST_F(Session, ConnectsAgainWithAFreshSessionOfTheSameOptions)
{
    session.setKnownHostsFile("%%d/known");
    EXPECT_CALL(libssh, ssh_connect).WillOnce(Return(SSH_ERROR));
    EXPECT_FALSE(session.connect());
    mayOrderCiphers();
    {
        const InSequence inThisOrder;
        EXPECT_CALL(libssh, ssh_options_copy(fakeSession(0), _))
            .WillOnce(DoAll(SetArgPointee<1>(fakeSession(1)), Return(SSH_OK)));
        // libssh has replaced the escapes in its own text by now.
        EXPECT_CALL(libssh, ssh_options_set(fakeSession(1), SSH_OPTIONS_KNOWNHOSTS,
                                            PointsToText("%%d/known")));
        EXPECT_CALL(libssh, ssh_free(fakeSession(0)));
        EXPECT_CALL(libssh, ssh_options_set(fakeSession(1), SSH_OPTIONS_PROCESS_CONFIG, _));
        EXPECT_CALL(libssh, ssh_options_set(fakeSession(1), SSH_OPTIONS_NODELAY, _));
        EXPECT_CALL(libssh, ssh_connect(fakeSession(1))).WillOnce(DoDefault());
    }
    EXPECT_TRUE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::HostAuthenticating);
    Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(Session, KeepsTheFailedSessionAndItsErrorUntilTheNextAttempt)
{
    EXPECT_CALL(libssh, ssh_connect).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_get_error(fakeSession())).WillRepeatedly(Return("Connection refused"));
    EXPECT_CALL(libssh, ssh_free).Times(0);
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(session.getLastError(), "Connection refused");
    Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(Session, WithoutMemoryForAFreshSessionKeepsTheOldOne)
{
    EXPECT_CALL(libssh, ssh_connect(fakeSession(0))).WillOnce(Return(SSH_ERROR));
    EXPECT_FALSE(session.connect());
    EXPECT_CALL(libssh, ssh_options_copy).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_free).Times(0);
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
    Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(ConnectedSession, RefusesASecondConnectAndStaysAsItIs)
{
    EXPECT_CALL(libssh, ssh_connect).Times(0);
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::HostAuthenticating);
}

TEST_F(ConnectedSession, IsConnectedAndAuthenticating)
{
    EXPECT_TRUE(session.isConnected());
    EXPECT_TRUE(session.isAuthenticating());
    EXPECT_FALSE(session.isAuthenticated());
}

TEST_F(ConnectedSession, DisconnectsInBlockingModeAfterWhatWasWrittenHasLeft)
{
    int mode = -1;
    RemoteSessionState during{};
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_blocking_flush(fakeSession(), ::testing::Le(500)));
    EXPECT_CALL(libssh, ssh_disconnect(fakeSession())).WillOnce([&](ssh_session) {
        mode = libssh.blocking;
        during = session.getState();
        libssh.connected = 0;
    });
    libssh.blocking = 0;
    EXPECT_TRUE(session.disconnect());
    EXPECT_EQ(mode, 1);
    EXPECT_EQ(during, RemoteSessionState::Disconnecting);
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(ConnectedSession, DisconnectsSilentlyInBlockingMode)
{
    int mode = -1;
    EXPECT_CALL(libssh, ssh_silent_disconnect(fakeSession())).WillOnce([&](ssh_session) {
        mode = libssh.blocking;
        libssh.connected = 0;
    });
    libssh.blocking = 0;
    session.silentDisconnect();
    EXPECT_EQ(mode, 1);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_F(Session, IsInBlockingModeAfterADisconnectThatHadNothingToDo)
{
    libssh.blocking = 0;
    EXPECT_FALSE(session.disconnect());
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_F(Session, KnowsItsBlockingMode)
{
    EXPECT_TRUE(isBlocking(session));
    libssh.blocking = 0;
    EXPECT_FALSE(isBlocking(session));
}

TEST_F(Session, KeepsTheInterfaceThatIsAttached)
{
    int object = 0;
    auto* const attached = reinterpret_cast<Tarnis::SSHSessionInterface*>(&object);
    EXPECT_EQ(handleOf(session).getSessionInterface(), nullptr);
    session.attachSSHSessionInterface(attached);
    EXPECT_EQ(handleOf(session).getSessionInterface(), attached);
    session.attachSSHSessionInterface(nullptr);
    EXPECT_EQ(handleOf(session).getSessionInterface(), nullptr);
}

TEST_F(ConnectedSession, KeepsTheInterfaceThatIsAttachedWhenItConnectsAgain)
{
    int object = 0;
    auto* const attached = reinterpret_cast<Tarnis::SSHSessionInterface*>(&object);
    session.attachSSHSessionInterface(attached);
    EXPECT_TRUE(session.disconnect());
    EXPECT_EQ(handleOf(session).getSessionInterface(), attached);
    EXPECT_CALL(libssh, ssh_options_copy(fakeSession(0), _))
        .WillOnce(DoAll(SetArgPointee<1>(fakeSession(1)), Return(SSH_OK)));
    EXPECT_TRUE(session.connect());
    EXPECT_EQ(handleOf(session).getResource(), fakeSession(1));
    EXPECT_EQ(handleOf(session).getSessionInterface(), attached);
}

TEST_F(ConnectedSession, IsDisconnectedOnlyOnce)
{
    EXPECT_TRUE(session.disconnect());
    EXPECT_CALL(libssh, ssh_disconnect).Times(0);
    EXPECT_FALSE(session.disconnect());
}

TEST_F(ConnectedSession, RetiresWhatWasMadeFromItBeforeItDisconnects)
{
    const auto process = session.createProcess("command");
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
    EXPECT_CALL(libssh, ssh_disconnect(fakeSession())).WillOnce(DoDefault());
    EXPECT_TRUE(session.disconnect());
    EXPECT_FALSE(process->isValid());
}

TEST_F(ConnectedSession, StaysUsableAfterADisconnect)
{
    EXPECT_TRUE(session.disconnect());
    EXPECT_TRUE(session.setHostName("another"));
    EXPECT_CALL(libssh, ssh_options_copy(fakeSession(0), _))
        .WillOnce(DoAll(SetArgPointee<1>(fakeSession(1)), Return(SSH_OK)));
    EXPECT_TRUE(session.connect());
}

TEST_F(ConnectedSession, DisconnectsSilentlyWithItsChildrenRetiredFirst)
{
    const auto process = session.createProcess("command");
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
    EXPECT_CALL(libssh, ssh_silent_disconnect(fakeSession())).WillOnce(DoDefault());
    EXPECT_CALL(libssh, ssh_disconnect).Times(0);
    session.silentDisconnect();
    EXPECT_FALSE(process->isValid());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(ConnectedSession, NoticesALostConnectionWhenAskedForItsState)
{
    libssh.connected = 0;
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
    EXPECT_FALSE(session.isConnected());
    // It does not come back.
    libssh.connected = 1;
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(ConnectedSession, NoticesALostConnectionInEveryQuery)
{
    libssh.connected = 0;
    EXPECT_FALSE(session.isAuthenticating());
    EXPECT_FALSE(session.isConnected());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(ConnectedSession, ThatWasLostMayConnectAgain)
{
    libssh.connected = 0;
    EXPECT_CALL(libssh, ssh_options_copy(fakeSession(0), _))
        .WillOnce(DoAll(SetArgPointee<1>(fakeSession(1)), Return(SSH_OK)));
    EXPECT_CALL(libssh, ssh_connect(fakeSession(1))).WillOnce(DoDefault());
    EXPECT_TRUE(session.connect());
}

TEST_F(SessionWithSocket, KeepsTheConnectionAliveAndNeverBlocksInASend)
{
    EXPECT_EQ(option(SOL_SOCKET, SO_KEEPALIVE), 1);
    const int idle = option(IPPROTO_TCP, TCP_KEEPIDLE);
    const int probes = option(IPPROTO_TCP, TCP_KEEPINTVL) * option(IPPROTO_TCP, TCP_KEEPCNT);
    EXPECT_LE(idle + probes, 120);
    EXPECT_GT(option(IPPROTO_TCP, TCP_USER_TIMEOUT), 0);
    EXPECT_LE(option(IPPROTO_TCP, TCP_USER_TIMEOUT), 120'000);
    EXPECT_NE(::fcntl(client.get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(SessionWithSocket, NoticesThatThePeerHasClosedThoughLibsshDoesNot)
{
    EXPECT_TRUE(session.isConnected());
    peerCloses();
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(SessionWithSocket, ClosesALostConnectionThatLibsshStillHolds)
{
    const auto process = session.createProcess("command");
    peerCloses();
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
    EXPECT_CALL(libssh, ssh_disconnect).Times(0);
    EXPECT_CALL(libssh, ssh_silent_disconnect(fakeSession())).WillOnce(DoDefault());
    EXPECT_FALSE(session.disconnect());
    EXPECT_FALSE(process->isValid());
    EXPECT_FALSE(session.disconnect());
}

TEST_F(SessionWithSocket, IsConnectedWhileOutputThatCameBeforeTheEndIsUnread)
{
    const auto process = session.createProcess("command");
    ASSERT_TRUE(process->start());
    ASSERT_EQ(::send(server.get(), "x", 1, 0), 1);
    peerCloses();
    EXPECT_TRUE(session.isConnected());
    EXPECT_CALL(libssh, ssh_channel_is_eof).WillRepeatedly(Return(1));
    EXPECT_FALSE(session.isConnected());
}

TEST_F(SessionWithSocket, ConnectsAgainThoughOutputFromBeforeTheEndIsUnread)
{
    const auto process = session.createProcess("command");
    ASSERT_TRUE(process->start());
    ASSERT_EQ(::send(server.get(), "x", 1, 0), 1);
    peerCloses();
    ASSERT_TRUE(session.isConnected());
    EXPECT_CALL(libssh, ssh_options_copy(fakeSession(0), _))
        .WillOnce(DoAll(SetArgPointee<1>(fakeSession(1)), Return(SSH_OK)));
    EXPECT_TRUE(session.connect());
    EXPECT_FALSE(process->isValid());
}

TEST_F(SessionWithSocket, IsNotConnectedAfterAnInterruptThoughOutputIsUnread)
{
    const auto process = session.createProcess("command");
    ASSERT_TRUE(process->start());
    ASSERT_EQ(::send(server.get(), "x", 1, 0), 1);
    pollfd arriving{client.get(), POLLIN, 0};
    ASSERT_EQ(::poll(&arriving, 1, 60'000), 1);
    session.interrupt();
    EXPECT_FALSE(session.isConnected());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(SessionWithSocket, IsShutDownByAnInterrupt)
{
    session.interrupt();
    char byte = 0;
    EXPECT_EQ(::recv(server.get(), &byte, 1, 0), 0);
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(SessionWithSocket, IsInterruptedWhileAnotherThreadHoldsItsLock)
{
    // The option's setter stands for a call that the server does not let return.
    EXPECT_CALL(libssh, ssh_options_set(_, SSH_OPTIONS_PORT, _)).WillOnce([&](auto...) {
        const Background other([this] { session.interrupt(); });
        EXPECT_TRUE(other.ends());
        char byte = 0;
        EXPECT_EQ(::recv(server.get(), &byte, 1, 0), 0);
        return SSH_ERROR;
    });
    EXPECT_FALSE(session.setPortNumber(22));
}

TEST_F(SessionWithSocket, LetsGoOfTheSocketWhenItDisconnects)
{
    session.disconnect();
    client.reset();
    char byte = 0;
    EXPECT_EQ(::recv(server.get(), &byte, 1, 0), 0);
}

TEST_F(ConnectedSession, IsInterruptedInTheFirstMomentsOfTheNextConnect)
{
    ON_CALL(libssh, ssh_options_copy)
        .WillByDefault(DoAll(SetArgPointee<1>(fakeSession(1)), Return(SSH_OK)));
    // The first thing that connect() asks libssh, before it expects any connection.
    EXPECT_CALL(libssh, ssh_is_connected)
        .WillOnce([this](auto...) {
            session.interrupt();
            libssh.connected = 0;
            return 0;
        })
        .WillRepeatedly(DoDefault());
    EXPECT_CALL(libssh, ssh_connect).Times(0);
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(Session, IsInterruptedBeforeItBeginsToConnect)
{
    EXPECT_CALL(libssh, ssh_options_set).WillRepeatedly([this](auto...) {
        session.interrupt();
        return SSH_OK;
    });
    EXPECT_CALL(libssh, ssh_connect).Times(0);
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(Session, IsInterruptedWhileLibsshConnects)
{
    EXPECT_CALL(libssh, ssh_connect).WillOnce([this](auto...) {
        session.interrupt();
        libssh.connected = 1;
        return SSH_OK;
    });
    EXPECT_CALL(libssh, ssh_silent_disconnect(fakeSession())).WillOnce(DoDefault());
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(Session, IsInterruptedBetweenTwoTriesToConnect)
{
    EXPECT_CALL(libssh, ssh_connect).WillOnce(Return(SSH_AGAIN)).WillOnce([this](auto...) {
        session.interrupt();
        return SSH_AGAIN;
    });
    EXPECT_FALSE(session.connect());
}

TEST_F(Session, ConnectsAfterAnInterruptedAttempt)
{
    EXPECT_CALL(libssh, ssh_connect)
        .WillOnce([this](auto...) {
            session.interrupt();
            return SSH_AGAIN;
        })
        .WillOnce(DoDefault());
    EXPECT_FALSE(session.connect());
    EXPECT_CALL(libssh, ssh_options_copy(fakeSession(0), _))
        .WillOnce(DoAll(SetArgPointee<1>(fakeSession(1)), Return(SSH_OK)));
    EXPECT_TRUE(session.connect());
    EXPECT_TRUE(session.isConnected());
}

TEST_F(Session, InterruptWithoutAConnectionDoesNotHarmTheNextOne)
{
    session.interrupt();
    EXPECT_TRUE(session.connect());
    EXPECT_TRUE(session.isConnected());
}

TEST_F(Session, SetsTheHostName)
{
    EXPECT_CALL(libssh, ssh_options_set(fakeSession(), SSH_OPTIONS_HOST, PointsToText("a.host")))
        .WillOnce(Return(SSH_OK))
        .WillOnce(Return(SSH_ERROR));
    EXPECT_TRUE(session.setHostName("a.host"));
    EXPECT_FALSE(session.setHostName("a.host"));
}

TEST_F(Session, SetsTheUserName)
{
    EXPECT_CALL(libssh, ssh_options_set(fakeSession(), SSH_OPTIONS_USER, PointsToText("somebody")))
        .WillOnce(Return(SSH_OK));
    EXPECT_TRUE(session.setUserName("somebody"));
}

TEST_F(Session, PutsTheFormerUserNameBackWhenLibsshAloneRefusesTheNewOne)
{
    char former[] = "former";
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_options_get(fakeSession(), SSH_OPTIONS_USER, _))
        .WillOnce(DoAll(SetArgPointee<2>(former), Return(SSH_OK)));
    EXPECT_CALL(libssh, ssh_options_set(fakeSession(), SSH_OPTIONS_USER, PointsToText("odd")))
        .WillOnce(Return(1));
    EXPECT_CALL(libssh, ssh_options_set(fakeSession(), SSH_OPTIONS_USER, PointsToText("former")));
    EXPECT_FALSE(session.setUserName("odd"));
}

TEST_F(Session, RefusesAUserNameWithShellCharactersWithoutAskingLibssh)
{
    EXPECT_CALL(libssh, ssh_options_set).Times(0);
    EXPECT_FALSE(session.setUserName("a;b"));
    EXPECT_FALSE(session.setHostName("a;b@host"));
    EXPECT_FALSE(session.setHostName("-a@host"));
}

TEST_F(Session, SetsThePortWidened)
{
    EXPECT_CALL(libssh, ssh_options_set(fakeSession(), SSH_OPTIONS_PORT, PointsToUnsigned(65535U)))
        .WillOnce(Return(SSH_OK))
        .WillOnce(Return(SSH_ERROR));
    EXPECT_TRUE(session.setPortNumber(65535));
    EXPECT_FALSE(session.setPortNumber(65535));
}

TEST_F(Session, PassesPortZeroOn)
{
    EXPECT_CALL(libssh, ssh_options_set(fakeSession(), SSH_OPTIONS_PORT, PointsToUnsigned(0U)))
        .WillOnce(Return(SSH_ERROR));
    EXPECT_FALSE(session.setPortNumber(0));
}

TEST_F(Session, SetsTheKnownHostsFile)
{
    EXPECT_CALL(libssh,
                ssh_options_set(fakeSession(), SSH_OPTIONS_KNOWNHOSTS, PointsToText("/the/file")))
        .WillOnce(Return(SSH_OK))
        .WillOnce(Return(SSH_ERROR));
    EXPECT_TRUE(session.setKnownHostsFile("/the/file"));
    EXPECT_FALSE(session.setKnownHostsFile("/the/file"));
}

TEST_F(Session, RefusesTextsWithANulByte)
{
    EXPECT_CALL(libssh, ssh_options_set).Times(0);
    EXPECT_FALSE(session.setHostName(textWithNul));
    EXPECT_FALSE(session.setUserName(textWithNul));
    EXPECT_FALSE(session.setKnownHostsFile(textWithNul));
}

TEST_F(Session, CopiesTheHostNameAndNeverFreesLibsshsText)
{
    char text[] = "a.host";
    EXPECT_CALL(libssh, ssh_options_get(fakeSession(), SSH_OPTIONS_HOST, _))
        .WillOnce(DoAll(SetArgPointee<2>(text), Return(SSH_OK)));
    EXPECT_CALL(libssh, ssh_string_free_char).Times(0);
    EXPECT_EQ(session.getHostName(), "a.host");
}

TEST_F(Session, CopiesAndFreesTheUserName)
{
    char text[] = "somebody";
    EXPECT_CALL(libssh, ssh_options_get(fakeSession(), SSH_OPTIONS_USER, _))
        .WillOnce(DoAll(SetArgPointee<2>(text), Return(SSH_OK)));
    EXPECT_CALL(libssh, ssh_string_free_char(text)).Times(1);
    EXPECT_EQ(session.getUserName(), "somebody");
}

TEST_F(Session, CopiesAndFreesTheKnownHostsFile)
{
    char text[] = "/the/file";
    EXPECT_CALL(libssh, ssh_options_get(fakeSession(), SSH_OPTIONS_KNOWNHOSTS, _))
        .WillOnce(DoAll(SetArgPointee<2>(text), Return(SSH_OK)));
    EXPECT_CALL(libssh, ssh_string_free_char(text)).Times(1);
    EXPECT_EQ(session.getKnownHostsFile(), "/the/file");
}

TEST_F(Session, HasEmptyTextsWhenLibsshHasNone)
{
    EXPECT_CALL(libssh, ssh_options_get).WillRepeatedly(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_string_free_char).Times(0);
    EXPECT_EQ(session.getHostName(), "");
    EXPECT_EQ(session.getUserName(), "");
    EXPECT_EQ(session.getKnownHostsFile(), "");
}

TEST_F(Session, ReportsThePort)
{
    EXPECT_CALL(libssh, ssh_options_get_port(fakeSession(), _))
        .WillOnce(DoAll(SetArgPointee<1>(2222U), Return(SSH_OK)));
    EXPECT_EQ(session.getPortNumber(), 2222);
}

TEST_F(Session, ReportsPortZeroWhenLibsshFails)
{
    EXPECT_CALL(libssh, ssh_options_get_port)
        .WillOnce(DoAll(SetArgPointee<1>(2222U), Return(SSH_ERROR)))
        .WillOnce(DoAll(SetArgPointee<1>(2222U), Return(1)));
    EXPECT_EQ(session.getPortNumber(), 0);
    EXPECT_EQ(session.getPortNumber(), 0);
}

TEST_F(Session, CutsAPortToItsLowSixteenBits)
{
    EXPECT_CALL(libssh, ssh_options_get_port)
        .WillOnce(DoAll(SetArgPointee<1>(0x1FFFEU), Return(SSH_OK)));
    EXPECT_EQ(session.getPortNumber(), 0xFFFE);
}

TEST_F(Session, CopiesTheLastErrorWithoutTheLock)
{
    char text[] = "went wrong";
    EXPECT_CALL(libssh, ssh_get_error(fakeSession())).WillRepeatedly(Return(text));
    std::string lastError;
    EXPECT_CALL(libssh, ssh_options_set(_, SSH_OPTIONS_HOST, _)).WillOnce([&](auto...) {
        const Background other([&] { lastError = session.getLastError(); });
        EXPECT_TRUE(other.ends());
        return SSH_ERROR;
    });
    session.setHostName("host");
    text[0] = 'W';
    EXPECT_EQ(lastError, "went wrong");
}

TEST_F(Session, HasAnEmptyLastErrorWhenLibsshHasNone)
{
    EXPECT_CALL(libssh, ssh_get_error).WillOnce(Return(nullptr));
    EXPECT_EQ(session.getLastError(), "");
}

TEST_F(Session, DoesNotAuthenticateWhileDisconnected)
{
    EXPECT_CALL(libssh, ssh_get_server_publickey).Times(0);
    EXPECT_CALL(libssh, ssh_userauth_none).Times(0);
    EXPECT_EQ(session.hostAuthenticate(HostAuthenticatorNone()), nullptr);
    EXPECT_EQ(session.userAuthenticate(UserAuthenticatorNone()), nullptr);
}

TEST_F(ConnectedSession, AuthenticatesTheHostBeforeTheUser)
{
    EXPECT_CALL(libssh, ssh_userauth_none).Times(0);
    EXPECT_EQ(session.userAuthenticate(UserAuthenticatorNone()), nullptr);
    EXPECT_EQ(session.getState(), RemoteSessionState::HostAuthenticating);
}

TEST_F(ConnectedSession, GoesOnToTheUserWhenTheHostIsAccepted)
{
    const auto response = session.hostAuthenticate(HostAuthenticatorNone());
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(session.getState(), RemoteSessionState::UserAuthenticating);
    EXPECT_TRUE(session.isAuthenticating());
    EXPECT_EQ(session.hostAuthenticate(HostAuthenticatorNone()), nullptr);
}

TEST_F(ConnectedSession, StaysWhenTheHostIsRejectedAndMayTryAgain)
{
    const auto rejected = session.hostAuthenticate(HostAuthenticatorHostKey({"key"}));
    ASSERT_NE(rejected, nullptr);
    EXPECT_EQ(rejected->getResult(), Tarnis::AuthenticateHostResult::Rejected);
    EXPECT_EQ(session.getState(), RemoteSessionState::HostAuthenticating);
    EXPECT_NE(session.hostAuthenticate(HostAuthenticatorNone()), nullptr);
    EXPECT_EQ(session.getState(), RemoteSessionState::UserAuthenticating);
}

TEST_F(ConnectedSession, StaysWhenTheUserIsNotAcceptedAndMayTryAgain)
{
    static_cast<void>(session.hostAuthenticate(HostAuthenticatorNone()));
    EXPECT_CALL(libssh, ssh_userauth_none)
        .WillOnce(Return(SSH_AUTH_DENIED))
        .WillOnce(Return(SSH_AUTH_PARTIAL))
        .WillOnce(Return(SSH_AUTH_ERROR));
    for (int attempt = 0; attempt < 3; ++attempt) {
        EXPECT_NE(session.userAuthenticate(UserAuthenticatorNone()), nullptr);
        EXPECT_EQ(session.getState(), RemoteSessionState::UserAuthenticating);
    }
    EXPECT_NE(session.userAuthenticate(UserAuthenticatorPassword("secret")), nullptr);
    EXPECT_EQ(session.getState(), RemoteSessionState::Authenticated);
}

TEST_F(ConnectedSession, DoesNotExplainALossWhileLoggingInByWhatLibsshMakesUp)
{
    static_cast<void>(session.hostAuthenticate(HostAuthenticatorNone()));
    EXPECT_CALL(libssh, ssh_get_error).WillRepeatedly(Return(madeUpError));
    EXPECT_CALL(libssh, ssh_userauth_none).WillOnce([this](auto...) {
        libssh.connected = 0;
        return SSH_AUTH_ERROR;
    });
    static_cast<void>(session.userAuthenticate(UserAuthenticatorNone()));
    EXPECT_EQ(Failure::last().code(), Tarnis::SSHFailureCode::Lost);
    EXPECT_EQ(Failure::last().text(), "");
}

TEST_F(AuthenticatedSession, IsAuthenticatedAndTakesNoMoreAuthentication)
{
    EXPECT_TRUE(session.isConnected());
    EXPECT_FALSE(session.isAuthenticating());
    EXPECT_TRUE(session.isAuthenticated());
    EXPECT_EQ(session.hostAuthenticate(HostAuthenticatorNone()), nullptr);
    EXPECT_EQ(session.userAuthenticate(UserAuthenticatorNone()), nullptr);
}

TEST_F(AuthenticatedSession, IsNotAuthenticatedOnceTheConnectionIsLost)
{
    libssh.connected = 0;
    EXPECT_FALSE(session.isAuthenticated());
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
}

TEST_F(ConnectedSession, ReportsTheServersKey)
{
    char text[] = "AAAAC3";
    EXPECT_CALL(libssh, ssh_get_server_publickey(fakeSession(), _))
        .WillOnce(DoAll(SetArgPointee<1>(fakeKey()), Return(SSH_OK)));
    EXPECT_CALL(libssh, ssh_pki_export_pubkey_base64(fakeKey(), _))
        .WillOnce(DoAll(SetArgPointee<1>(text), Return(SSH_OK)));
    EXPECT_CALL(libssh, ssh_string_free_char(text));
    EXPECT_CALL(libssh, ssh_key_free(fakeKey()));
    EXPECT_EQ(session.getPublicServerKeyB64(), "AAAAC3");
}

TEST_F(ConnectedSession, ReportsNoKeyWhenThereIsNone)
{
    EXPECT_CALL(libssh, ssh_get_server_publickey).WillOnce(Return(SSH_ERROR));
    EXPECT_EQ(session.getPublicServerKeyB64(), "");
}

TEST_F(ConnectedSession, MakesAProcessThatIsNotStarted)
{
    EXPECT_CALL(libssh, ssh_channel_new(fakeSession())).WillOnce(Return(fakeChannel(1)));
    EXPECT_CALL(libssh, ssh_channel_open_session).Times(0);
    const auto process = session.createProcess("ls -l");
    ASSERT_NE(process, nullptr);
    EXPECT_TRUE(process->isValid());
    EXPECT_EQ(process->getCommandLine(), "ls -l");
    EXPECT_EQ(process->getProcessState(), Tarnis::SSHCommandLineProcessState::NotStarted);
}

TEST_F(AuthenticatedSession, ExecutesNothingWithoutAChannel)
{
    EXPECT_CALL(libssh, ssh_channel_new).WillOnce(Return(nullptr));
    EXPECT_EQ(session.execute("command").outcome, SSHExecuteResult::Outcome::NotStarted);
}

TEST_F(ConnectedSession, ExecutesNothingBeforeTheUserIsAccepted)
{
    EXPECT_CALL(libssh, ssh_channel_new).Times(0);
    EXPECT_EQ(session.execute("command").outcome, SSHExecuteResult::Outcome::NotStarted);
}
