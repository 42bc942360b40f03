#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"
#include "support/LoopbackSocket.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <libssh/libssh.h>

#include <future>
#include <string_view>

#include <unistd.h>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using State = RemoteSessionState;

class SessionConnect : public OpenSshTest
{};

TEST_F(SessionConnect, IsDisconnectedUntilConnectIsCalled)
{
    EXPECT_EQ(session().getState(), State::Disconnected);
    EXPECT_FALSE(session().isConnected());
    EXPECT_FALSE(session().isAuthenticating());
    EXPECT_FALSE(session().isAuthenticated());
    EXPECT_TRUE(socketsConnectedTo(server().port()).empty());
}

TEST_F(SessionConnect, WalksThroughItsStatesUpToAuthenticated)
{
    ASSERT_TRUE(session().connect());
    EXPECT_EQ(session().getState(), State::HostAuthenticating);
    EXPECT_TRUE(session().isConnected());
    EXPECT_TRUE(session().isAuthenticating());
    EXPECT_FALSE(session().isAuthenticated());

    ASSERT_NE(session().hostAuthenticate(HostAuthenticatorNone()), nullptr);
    EXPECT_EQ(session().getState(), State::UserAuthenticating);
    EXPECT_TRUE(session().isConnected());
    EXPECT_TRUE(session().isAuthenticating());
    EXPECT_FALSE(session().isAuthenticated());

    ASSERT_EQ(offerKey(session(), server().clientKey()), AuthenticateUserResult::Success);
    EXPECT_EQ(session().getState(), State::Authenticated);
    EXPECT_TRUE(session().isConnected());
    EXPECT_FALSE(session().isAuthenticating());
    EXPECT_TRUE(session().isAuthenticated());
    EXPECT_TRUE(runsCommands(session()));
}

TEST_F(SessionConnect, NamesTheStatesByTheirBits)
{
    EXPECT_EQ(static_cast<unsigned>(session().getState()), 512U);
    ASSERT_TRUE(session().connect());
    EXPECT_EQ(static_cast<unsigned>(session().getState()), 22U);
    ASSERT_NE(session().hostAuthenticate(HostAuthenticatorNone()), nullptr);
    EXPECT_EQ(static_cast<unsigned>(session().getState()), 38U);
    ASSERT_EQ(offerKey(session(), server().clientKey()), AuthenticateUserResult::Success);
    EXPECT_EQ(static_cast<unsigned>(session().getState()), 66U);
}

TEST_F(SessionConnect, RefusesASecondConnectInEveryConnectedStateAndChangesNothing)
{
    ASSERT_TRUE(session().connect());
    EXPECT_FALSE(session().connect());
    EXPECT_EQ(session().getState(), State::HostAuthenticating);

    ASSERT_NE(session().hostAuthenticate(HostAuthenticatorNone()), nullptr);
    EXPECT_FALSE(session().connect());
    EXPECT_EQ(session().getState(), State::UserAuthenticating);

    ASSERT_EQ(offerKey(session(), server().clientKey()), AuthenticateUserResult::Success);
    EXPECT_FALSE(session().connect());
    EXPECT_EQ(session().getState(), State::Authenticated);
    EXPECT_TRUE(runsCommands(session()));
    EXPECT_EQ(server().connectionProcessCount(), 1U);
}

TEST_F(SessionConnect, FailsWithoutAHostName)
{
    SSHSession nowhere;
    EXPECT_FALSE(nowhere.connect());
    EXPECT_EQ(nowhere.getState(), State::Disconnected);
    EXPECT_NE(nowhere.getLastError(), "");
}

TEST_F(SessionConnect, FailsAtAPortThatNobodyListensOn)
{
    const RefusingPort refusing;
    ASSERT_TRUE(session().setPortNumber(refusing.port()));
    EXPECT_FALSE(session().connect());
    EXPECT_EQ(session().getState(), State::Disconnected);
}

TEST_F(SessionConnect, ReadsNoConfigurationFile)
{
    const TemporaryDirectory home;
    home.makeDirectory(".ssh");
    home.write(".ssh/config", "Host *\n"
                              "  Port 1\n"
                              "  User somebody-else\n"
                              "  HostName 127.0.0.2\n"
                              "  StrictHostKeyChecking no\n"
                              "  GlobalKnownHostsFile /dev/null\n");
    const HomeForATime inHome(home.path().string());

    SSHSession plain;
    ASSERT_TRUE(plain.setHostName(kLoopback));
    ASSERT_TRUE(plain.setPortNumber(server().port()));
    ASSERT_TRUE(plain.connect()) << plain.getLastError();
    EXPECT_EQ(plain.getPortNumber(), server().port());
    EXPECT_EQ(plain.getUserName(), server().user());
    EXPECT_EQ(plain.getHostName(), kLoopback);

    const auto response = plain.hostAuthenticate(
        HostAuthenticatorKnownHostFile(HostAuthenticatorKnownHostFile::AutoMode::KnownOnly, false));
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->getResult(), AuthenticateHostResult::Rejected);
}

// The file of the test above lies where libssh would look for it.
TEST(SessionConnectControl, LibsshItselfReadsAConfigurationFileInTheOverriddenHome)
{
    const TemporaryDirectory home;
    home.makeDirectory(".ssh");
    home.write(".ssh/config", "Host *\n  Port 4711\n");
    const HomeForATime inHome(home.path().string());

    const std::unique_ptr<ssh_session_struct, decltype(&ssh_free)> plain(ssh_new(), ssh_free);
    ASSERT_EQ(ssh_options_set(plain.get(), SSH_OPTIONS_HOST, kLoopback), SSH_OK);
    ASSERT_EQ(ssh_options_parse_config(plain.get(), nullptr), SSH_OK);
    unsigned int port = 0;
    ASSERT_EQ(ssh_options_get_port(plain.get(), &port), SSH_OK);
    EXPECT_EQ(port, 4711U);
}

class SessionDisconnect : public OpenSshTest
{
protected:
    void expectDisconnected()
    {
        EXPECT_EQ(session().getState(), State::Disconnected);
        EXPECT_FALSE(session().isConnected());
        EXPECT_TRUE(socketsConnectedTo(server().port()).empty());
        EXPECT_TRUE(waitUntil([this] { return server().connectionProcessCount() == 0; }));
    }
};

TEST_F(SessionDisconnect, IsRefusedWhenThereIsNoConnection)
{
    EXPECT_FALSE(session().disconnect());
    EXPECT_EQ(session().getState(), State::Disconnected);

    ASSERT_TRUE(session().connect());
    ASSERT_TRUE(session().disconnect());
    EXPECT_FALSE(session().disconnect());
    EXPECT_EQ(session().getState(), State::Disconnected);
}

TEST_F(SessionDisconnect, EndsAConnectionWhoseHostIsNotAccepted)
{
    ASSERT_TRUE(session().connect());
    EXPECT_TRUE(session().disconnect());
    expectDisconnected();
}

TEST_F(SessionDisconnect, EndsAConnectionWhoseUserIsNotAccepted)
{
    ASSERT_TRUE(connectTrusting(session()));
    EXPECT_TRUE(session().disconnect());
    expectDisconnected();
}

TEST_F(SessionDisconnect, EndsAnAuthenticatedConnection)
{
    ASSERT_TRUE(logIn());
    EXPECT_TRUE(session().disconnect());
    expectDisconnected();
}

TEST_F(SessionDisconnect, IsStillPossibleAfterASilentOne)
{
    ASSERT_TRUE(logIn());
    session().silentDisconnect();
    // The state was left as it was, and nobody has asked for it since.
    EXPECT_TRUE(session().disconnect());
    EXPECT_FALSE(session().disconnect());
    expectDisconnected();
}

TEST_F(SessionDisconnect, LeavesTheStateForTheNextQueryWhenSilent)
{
    ASSERT_TRUE(session().connect());
    session().silentDisconnect();
    // Only in state HostAuthenticating is there an answer.
    EXPECT_NE(session().hostAuthenticate(HostAuthenticatorHostKey({})), nullptr);
    expectDisconnected();
    EXPECT_EQ(session().hostAuthenticate(HostAuthenticatorHostKey({})), nullptr);
}

TEST_F(SessionDisconnect, IsNoticedByEveryQueryWhenSilent)
{
    ASSERT_TRUE(logIn());
    session().silentDisconnect();
    EXPECT_FALSE(session().isAuthenticated());

    ASSERT_TRUE(logIn());
    session().silentDisconnect();
    EXPECT_FALSE(session().isConnected());

    ASSERT_TRUE(connectTrusting(session()));
    session().silentDisconnect();
    EXPECT_FALSE(session().isAuthenticating());
    expectDisconnected();
}

TEST_F(SessionDisconnect, DoesNothingWhenSilentAndThereIsNoConnection)
{
    session().silentDisconnect();
    EXPECT_EQ(session().getState(), State::Disconnected);
    EXPECT_TRUE(logIn()) << session().getLastError();
}

/// A server that says something else than SSH.
class ForeignServer : public ::testing::TestWithParam<std::string>
{};

TEST_P(ForeignServer, IsNoServerToConnectTo)
{
    const UniqueFd listener = listenOnLoopback();
    SSHSession session;
    address(session, localPort(listener), "nobody");
    auto connecting = std::async(std::launch::async, [&] { return session.connect(); });
    {
        const UniqueFd connection = acceptConnection(listener);
        ASSERT_TRUE(connection.isOpen());
        const std::string& greeting = GetParam();
        ASSERT_EQ(::write(connection.get(), greeting.data(), greeting.size()),
                  static_cast<ssize_t>(greeting.size()));
    }
    EXPECT_FALSE(connecting.get());
    EXPECT_EQ(session.getState(), State::Disconnected);
    EXPECT_NE(session.getLastError(), "");
}

INSTANTIATE_TEST_SUITE_P(Greetings, ForeignServer,
                         ::testing::Values("HTTP/1.1 400 Bad Request\r\n\r\n",
                                           "SSH-1.5-OpenSSH_1.2.3\r\n", "SSH-2.0-\r\n\r\n\r\n\r\n",
                                           std::string(100'000, 'x'), std::string(300, '\0'),
                                           "SSH-2.0-server\r\n" + std::string(64, '\xff')));

TEST(SessionConnectScripted, FailsWhenTheServerClosesAtOnce)
{
    for (const Handshake handshake : {Handshake::CloseAtOnce, Handshake::CloseAfterBanner}) {
        ScriptedPolicy policy;
        policy.handshake = handshake;
        const ScriptedServer server(policy);
        SSHSession session;
        address(session, server.port(), "anybody");
        EXPECT_FALSE(session.connect());
        EXPECT_EQ(session.getState(), State::Disconnected);
        EXPECT_NE(session.getLastError(), "");
    }
}

TEST(SessionConnectScripted, TellsTheServersPublicKeyWhileConnected)
{
    const ScriptedServer server;
    SSHSession session;
    address(session, server.port(), "anybody");
    EXPECT_EQ(session.getPublicServerKeyB64(), "");
    ASSERT_TRUE(session.connect()) << session.getLastError();
    EXPECT_EQ(session.getPublicServerKeyB64(), ScriptedServer::hostPublicKeyBase64());
    ASSERT_TRUE(session.disconnect());
    EXPECT_EQ(session.getPublicServerKeyB64(), "");
}

} // namespace

} // namespace TarnisTest
