// Why connecting failed, or a connection ended, as the failure of the call says it. Where libssh
// has only a text to tell it by, a test here fails when that text changes.

#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"
#include "support/LoopbackSocket.h"
#include "support/ScriptedServer.h"
#include "support/TcpProxy.h"

#include <FileSystem/Failure.h>
#include <Tarnis/SSHFailureCode.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libssh/libssh.h>

#include <future>
#include <string>
#include <thread>

#include <unistd.h>

namespace TarnisTest {

using namespace Tarnis;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FailureSource;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

using Kind = SSHAlgorithmMismatch::Kind;

/// What an attempt to connect fails with; no failure when it succeeds.
Failure failureOfConnecting(SSHSession& session)
{
    const bool isConnected = session.connect();
    EXPECT_FALSE(isConnected);
    return Failure::last();
}

Failure failureOfConnectingTo(const std::string& host, std::uint16_t port)
{
    SSHSession session;
    EXPECT_TRUE(session.setHostName(host));
    EXPECT_TRUE(session.setPortNumber(port));
    return failureOfConnecting(session);
}

TEST(ConnectFailures, OfAHostNameWithoutAnAddress)
{
    const auto failure = failureOfConnectingTo("no-such-host.invalid", 22);
    EXPECT_EQ(failure.code(), SSHFailureCode::NameNotResolved);
    EXPECT_EQ(failure.operation(), "connect");
    EXPECT_EQ(failure.entry(), "no-such-host.invalid:22");
    EXPECT_EQ(failure.source(), FailureSource::Transport);
    EXPECT_EQ(failure.number(), SSH_FATAL);
    EXPECT_THAT(failure.message(), HasSubstr("connect no-such-host.invalid:22: "));
}

TEST(ConnectFailures, OfAPortThatNobodyListensOn)
{
    const RefusingPort refusing;
    const auto failure = failureOfConnectingTo(kLoopback, refusing.port());
    EXPECT_EQ(failure.code(), SSHFailureCode::Refused);
    EXPECT_EQ(failure.code(), std::errc::connection_refused);
    EXPECT_EQ(failure.entry(), kLoopback + std::string(":") + std::to_string(refusing.port()));
    EXPECT_THAT(failure.text(), HasSubstr(std::generic_category().message(ECONNREFUSED)));
}

TEST(ConnectFailures, OfAnAddressToWhichNoWayLeads)
{
    // Everybody's address is nobody's to connect to.
    const auto failure = failureOfConnectingTo("255.255.255.255", 22);
    EXPECT_EQ(failure.code(), SSHFailureCode::Unreachable) << failure.message();
}

TEST(ConnectFailures, OfASessionWithoutAHostName)
{
    SSHSession session;
    EXPECT_EQ(failureOfConnecting(session).code(), FailureCode::BadName);
}

TEST(ConnectFailures, OfAKnownHostsPathWithAnEscapeThatNobodyKnows)
{
    SSHSession session;
    address(session, 22, "anybody");
    ASSERT_TRUE(session.setKnownHostsFile("/nowhere/%z"));
    EXPECT_EQ(failureOfConnecting(session).code(), FailureCode::BadName);
}

/// Servers that hang up, and how that reads.
TEST(ConnectFailures, OfAServerThatHangsUpDependOnWhetherItSaidWhoItIs)
{
    for (const auto& [handshake, code] :
         {std::pair{Handshake::CloseAtOnce, SSHFailureCode::NoSshServer},
          std::pair{Handshake::CloseAfterBanner, SSHFailureCode::Lost}}) {
        ScriptedPolicy policy;
        policy.handshake = handshake;
        const ScriptedServer server(policy);
        const auto failure = failureOfConnectingTo(kLoopback, server.port());
        EXPECT_EQ(failure.code(), code) << failure.message();
        EXPECT_THAT(failure.text(), Not(IsEmpty()));
    }
}

/// Connects to something that says `greeting`, and then hangs up or waits for what comes.
Failure failureAfterGreeting(const std::string& greeting, bool hangsUp = true)
{
    const UniqueFd listener = listenOnLoopback();
    auto connecting = std::async(std::launch::async, [port = localPort(listener)] {
        return failureOfConnectingTo(kLoopback, port);
    });
    UniqueFd connection = acceptConnection(listener);
    EXPECT_EQ(::write(connection.get(), greeting.data(), greeting.size()),
              static_cast<ssize_t>(greeting.size()));
    if (hangsUp) {
        connection.reset();
    }
    return connecting.get();
}

TEST(ConnectFailures, OfWhatIsNoSshServer)
{
    for (const std::string& greeting :
         {std::string("HTTP/1.1 400 Bad Request\r\n\r\n"), std::string("SSH-1.5-OpenSSH_1.2.3\r\n"),
          std::string(100'000, 'x'), std::string(300, '\0')}) {
        const auto failure = failureAfterGreeting(greeting);
        EXPECT_EQ(failure.code(), SSHFailureCode::NoSshServer)
            << greeting.substr(0, 20) << ": " << failure.message();
        EXPECT_EQ(failure.code(), std::errc::protocol_error);
    }
}

TEST(ConnectFailures, OfAServerThatBreaksTheProtocol)
{
    const auto failure =
        failureAfterGreeting("SSH-2.0-server\r\n" + std::string(64, '\xff'), false);
    EXPECT_EQ(failure.code(), FailureCode::Protocol) << failure.message();
    EXPECT_EQ(failure.code(), std::errc::protocol_error);
}

TEST(ConnectFailures, OfAnAttemptThatWasInterrupted)
{
    ScriptedPolicy policy;
    policy.handshake = Handshake::BannerOnly;
    const ScriptedServer server(policy);
    SSHSession session;
    address(session, server.port(), "anybody");
    auto connecting = std::async(std::launch::async, [&] { return failureOfConnecting(session); });
    EXPECT_TRUE(server.events().waitFor(ServerEvent::Kind::Connected));
    session.interrupt();
    const auto failure = connecting.get();
    EXPECT_EQ(failure.code(), SSHFailureCode::Interrupted) << failure.message();
    EXPECT_EQ(failure.code(), std::errc::operation_canceled);
}

TEST(ConnectFailures, OfASessionThatIsConnected)
{
    const ScriptedServer server;
    SSHSession session;
    address(session, server.port(), "anybody");
    ASSERT_TRUE(session.connect());
    EXPECT_FALSE(Failure::last());
    EXPECT_EQ(failureOfConnecting(session).code(), SSHFailureCode::AlreadyConnected);
    EXPECT_EQ(Failure::last().code(), std::errc::already_connected);
}

/// A server that has nothing in common with us.
class Mismatch : public OpenSshTest
{
protected:
    void expect(const std::vector<std::string>& lines, Kind kind, const std::string& theirs)
    {
        OpenSshOptions options;
        options.extraLines = lines;
        startServer(options);
        EXPECT_EQ(failureOfConnecting(session()).code(), SSHFailureCode::NoCommonAlgorithm)
            << Failure::last().message();
        EXPECT_EQ(Failure::last().code(), std::errc::protocol_not_supported);
        const auto mismatch = session().getAlgorithmMismatch();
        ASSERT_TRUE(mismatch.has_value());
        EXPECT_EQ(mismatch->kind, kind);
        EXPECT_THAT(mismatch->serverOffers, ElementsAre(theirs));
        EXPECT_THAT(mismatch->weOffer, Not(IsEmpty()));
        EXPECT_THAT(mismatch->weOffer, Not(Contains(theirs)));
        EXPECT_TRUE(mismatch->isComplete);
        // Asking leaves the failure where it is.
        EXPECT_EQ(Failure::last().code(), SSHFailureCode::NoCommonAlgorithm);
    }
};

TEST_F(Mismatch, OfKeyExchanges)
{
    expect({"KexAlgorithms diffie-hellman-group14-sha1"}, Kind::KeyExchange,
           "diffie-hellman-group14-sha1");
}

TEST_F(Mismatch, OfCiphers)
{
    expect({"Ciphers 3des-cbc"}, Kind::CipherToServer, "3des-cbc");
}

TEST_F(Mismatch, OfMessageAuthenticationCodes)
{
    expect({"Ciphers aes256-ctr", "MACs umac-64@openssh.com"}, Kind::MacToServer,
           "umac-64@openssh.com");
}

TEST_F(Mismatch, IsForgottenAtTheNextAttempt)
{
    expect({"Ciphers 3des-cbc"}, Kind::CipherToServer, "3des-cbc");
    const RefusingPort refusing;
    ASSERT_TRUE(session().setPortNumber(refusing.port()));
    EXPECT_EQ(failureOfConnecting(session()).code(), SSHFailureCode::Refused);
    EXPECT_FALSE(session().getAlgorithmMismatch().has_value());
}

/// Options that cannot be.
TEST(OptionFailures, NameWhatWasGiven)
{
    SSHSession session;
    EXPECT_FALSE(session.setHostName("host;id"));
    EXPECT_EQ(Failure::last().code(), std::errc::invalid_argument);
    EXPECT_EQ(Failure::last().operation(), "setHostName");
    EXPECT_EQ(Failure::last().path(), "host;id");
    EXPECT_FALSE(session.setUserName("`id`"));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
    EXPECT_EQ(Failure::last().path(), "`id`");
    EXPECT_FALSE(session.setPortNumber(0));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
    EXPECT_FALSE(session.setKnownHostsFile(""));
    EXPECT_EQ(Failure::last().operation(), "setKnownHostsFile");
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
    EXPECT_TRUE(session.setPortNumber(22));
    EXPECT_FALSE(Failure::last());
}

/// A session whose connection goes.
class Loss : public ::testing::Test
{
protected:
    Loss()
        : line_(server_.port())
    {
        address(session_, line_.port(), "anybody");
        EXPECT_TRUE(session_.connect()) << session_.getLastError();
        EXPECT_NE(session_.hostAuthenticate(HostAuthenticatorNone()), nullptr);
    }

    SSHSession& session() { return session_; }

    TcpProxy& line() { return line_; }

    void waitUntilNoticed()
    {
        ASSERT_TRUE(
            waitUntil([this] { return session_.getState() == RemoteSessionState::Disconnected; }));
    }

    void expectEveryStepFailsWith(SSHFailureCode code)
    {
        EXPECT_EQ(session_.userAuthenticate(UserAuthenticatorNone()), nullptr);
        EXPECT_EQ(Failure::last().code(), code);
        EXPECT_EQ(Failure::last().operation(), "userAuthenticate");
        EXPECT_EQ(session_.hostAuthenticate(HostAuthenticatorNone()), nullptr);
        EXPECT_EQ(Failure::last().code(), code);
        EXPECT_FALSE(session_.disconnect());
        EXPECT_EQ(Failure::last().code(), code);
    }

private:
    ScriptedServer server_;
    TcpProxy line_;
    SSHSession session_;
};

TEST_F(Loss, IsWhatEveryStepFailsWithUntilTheNextConnection)
{
    line().cut(TcpProxy::Cut::Finish);
    waitUntilNoticed();
    EXPECT_EQ(Failure::last().code(), std::errc::connection_reset);
    EXPECT_EQ(Failure::last().text(), "the server closed the connection");
    EXPECT_FALSE(session().isAuthenticated());
    EXPECT_EQ(Failure::last().code(), SSHFailureCode::Lost);
    expectEveryStepFailsWith(SSHFailureCode::Lost);
    ASSERT_TRUE(session().connect());
    EXPECT_FALSE(Failure::last());
    ASSERT_TRUE(session().disconnect());
    expectEveryStepFailsWith(SSHFailureCode::NotConnected);
}

TEST_F(Loss, HasTheSocketsReason)
{
    line().cut(TcpProxy::Cut::Reset);
    waitUntilNoticed();
    EXPECT_EQ(Failure::last().code(), SSHFailureCode::Lost);
    EXPECT_EQ(Failure::last().source(), FailureSource::System);
    EXPECT_EQ(Failure::last().number(), ECONNRESET);
    expectEveryStepFailsWith(SSHFailureCode::Lost);
}

TEST_F(Loss, ByAnInterruptIsToldAsSuch)
{
    session().interrupt();
    waitUntilNoticed();
    expectEveryStepFailsWith(SSHFailureCode::Interrupted);
}

TEST_F(Loss, DuringALogInFailsIt)
{
    line().cut(TcpProxy::Cut::Finish);
    EXPECT_EQ(authenticate(session(), UserAuthenticatorNone()), AuthenticateUserResult::Error);
    EXPECT_EQ(Failure::last().code(), SSHFailureCode::Lost) << Failure::last().message();
    EXPECT_EQ(Failure::last().source(), FailureSource::Transport);
    EXPECT_THAT(Failure::last().text(), Not(IsEmpty()));
    waitUntilNoticed();
    expectEveryStepFailsWith(SSHFailureCode::Lost);
}

TEST_F(Loss, IsNoneWhenTheSessionEndsItself)
{
    session().silentDisconnect();
    waitUntilNoticed();
    expectEveryStepFailsWith(SSHFailureCode::NotConnected);
}

TEST(StateFailures, AreNoneWhereTheAnswerIsANo)
{
    SSHSession session;
    EXPECT_FALSE(session.isConnected());
    EXPECT_FALSE(Failure::last());
    EXPECT_EQ(session.getUserName(), "");
    EXPECT_FALSE(Failure::last());
}

TEST(StateFailures, SayWhoseTurnItIs)
{
    const ScriptedServer server;
    SSHSession session;
    address(session, server.port(), "anybody");
    EXPECT_EQ(session.getPublicServerKeyB64(), "");
    EXPECT_EQ(Failure::last().code(), SSHFailureCode::NotConnected);
    ASSERT_TRUE(session.connect());
    EXPECT_EQ(session.userAuthenticate(UserAuthenticatorNone()), nullptr);
    EXPECT_EQ(Failure::last().code(), SSHFailureCode::OutOfTurn);
    ASSERT_NE(session.hostAuthenticate(HostAuthenticatorNone()), nullptr);
    EXPECT_EQ(session.hostAuthenticate(HostAuthenticatorNone()), nullptr);
    EXPECT_EQ(Failure::last().code(), SSHFailureCode::OutOfTurn);
}

TEST(StateFailures, OutliveTheSessionTheyComeFrom)
{
    const RefusingPort refusing;
    const ScriptedServer server;
    {
        SSHSession connected;
        address(connected, server.port(), "anybody");
        ASSERT_TRUE(connected.connect());
        SSHSession session;
        address(session, refusing.port(), "anybody");
        EXPECT_FALSE(session.connect());
    }
    EXPECT_EQ(Failure::last().code(), SSHFailureCode::Refused);
}

TEST(StateFailures, BelongToTheThreadThatMadeTheCall)
{
    const RefusingPort refusing;
    EXPECT_TRUE(failureOfConnectingTo(kLoopback, refusing.port()));
    std::thread([] { EXPECT_FALSE(Failure::last()); }).join();
    EXPECT_TRUE(Failure::last());
}

} // namespace

} // namespace TarnisTest
