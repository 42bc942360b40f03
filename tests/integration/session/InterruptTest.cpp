#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"
#include "support/ScriptedServer.h"
#include "support/TcpProxy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>

#include <sys/ioctl.h>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using State = RemoteSessionState;

class SessionInterrupt : public ::testing::Test
{
protected:
    SSHSession& session() { return session_; }

    /// Interrupts the session and tells whether the blocked call came back soon after.
    template <class Result>
    ::testing::AssertionResult isFreed(std::future<Result>& blocked)
    {
        if (blocked.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready) {
            return ::testing::AssertionFailure() << "nothing was blocked";
        }
        session().interrupt();
        if (blocked.wait_for(std::chrono::seconds(1)) != std::future_status::ready) {
            return ::testing::AssertionFailure() << "still blocked after a second";
        }
        return ::testing::AssertionSuccess();
    }

    std::future<bool> connectInBackground(std::uint16_t port)
    {
        address(session(), port, "anybody");
        return std::async(std::launch::async, [this] { return session().connect(); });
    }

    bool logIn(std::uint16_t port)
    {
        address(session(), port, "anybody");
        return connectTrusting(session()) &&
               authenticate(session(), UserAuthenticatorPassword(ScriptedPolicy::kPassword)) ==
                   AuthenticateUserResult::Success;
    }

    void expectDisconnectedAndUsable()
    {
        EXPECT_EQ(session().getState(), State::Disconnected);
        const ScriptedServer good;
        EXPECT_TRUE(logIn(good.port())) << session().getLastError();
    }

private:
    SSHSession session_;
};

/// What has arrived from the server and was not taken off the connection.
int unreadBytes(std::uint16_t port)
{
    int bytes = 0;
    for (const int socket : socketsConnectedTo(port)) {
        int arrived = 0;
        EXPECT_EQ(::ioctl(socket, FIONREAD, &arrived), 0);
        bytes = std::max(bytes, arrived);
    }
    return bytes;
}

class InterruptDuringHandshake : public SessionInterrupt,
                                 public ::testing::WithParamInterface<Handshake>
{};

TEST_P(InterruptDuringHandshake, FreesAConnectToAServerThatStopsAnswering)
{
    ScriptedPolicy policy;
    policy.handshake = GetParam();
    const ScriptedServer silent(policy);
    auto connecting = connectInBackground(silent.port());
    ASSERT_TRUE(silent.events().waitFor(ServerEvent::Kind::Connected));
    ASSERT_TRUE(isFreed(connecting));
    EXPECT_FALSE(connecting.get());
    expectDisconnectedAndUsable();
}

INSTANTIATE_TEST_SUITE_P(Handshakes, InterruptDuringHandshake,
                         ::testing::Values(Handshake::SendNothing, Handshake::BannerOnly,
                                           Handshake::StopAfterKexInit));

TEST_F(SessionInterrupt, FreesAConnectWhoseHandshakeIsNeverAnswered)
{
    const FullListener full;
    auto connecting = connectInBackground(full.port());
    ASSERT_TRUE(waitUntil(isWaitingForHandshake));
    ASSERT_TRUE(isFreed(connecting));
    EXPECT_FALSE(connecting.get());
    expectDisconnectedAndUsable();
}

TEST_F(SessionInterrupt, FreesAnAuthenticationThatIsNeverAnswered)
{
    ScriptedPolicy policy;
    policy.authenticate = [](const ServerEvent&) { return AuthReply::silence(); };
    const ScriptedServer silent(policy);
    address(session(), silent.port(), "anybody");
    ASSERT_TRUE(connectTrusting(session()));
    auto answer = std::async(std::launch::async, [this] {
        return authenticate(session(), UserAuthenticatorPassword("any"));
    });
    ASSERT_TRUE(silent.events().waitFor(ServerEvent::Kind::Authentication));
    ASSERT_TRUE(isFreed(answer));
    EXPECT_EQ(answer.get(), AuthenticateUserResult::Error);
    expectDisconnectedAndUsable();
}

TEST_F(SessionInterrupt, FreesAProcessStartThatIsNeverAnswered)
{
    ScriptedPolicy policy;
    policy.openChannel = [](const ServerEvent&) { return Answer::Silence; };
    const ScriptedServer silent(policy);
    ASSERT_TRUE(logIn(silent.port()));
    const auto process = session().createProcess("anything");
    ASSERT_NE(process, nullptr);
    auto starting = std::async(std::launch::async, [&] { return process->start(); });
    ASSERT_TRUE(silent.events().waitFor(ServerEvent::Kind::ChannelOpen));
    ASSERT_TRUE(isFreed(starting));
    EXPECT_FALSE(starting.get());
    expectDisconnectedAndUsable();
}

TEST_F(SessionInterrupt, FreesAnExecRequestThatIsNeverAnswered)
{
    ScriptedPolicy policy;
    policy.channelRequest = [](const ServerEvent&) { return Answer::Silence; };
    const ScriptedServer silent(policy);
    ASSERT_TRUE(logIn(silent.port()));
    const auto process = session().createProcess("anything");
    ASSERT_NE(process, nullptr);
    auto starting = std::async(std::launch::async, [&] { return process->start(); });
    ASSERT_TRUE(silent.events().waitFor(ServerEvent::Kind::ExecRequest));
    ASSERT_TRUE(isFreed(starting));
    EXPECT_FALSE(starting.get());
    expectDisconnectedAndUsable();
}

TEST_F(SessionInterrupt, FreesACommandThatNeverEnds)
{
    ScriptedPolicy policy;
    policy.run = [](ScriptedChannel& channel) { channel.waitForClose(); };
    const ScriptedServer server(policy);
    ASSERT_TRUE(logIn(server.port()));
    auto running =
        std::async(std::launch::async, [this] { return session().execute("sleep forever"); });
    ASSERT_TRUE(server.events().waitFor(ServerEvent::Kind::ExecRequest));
    ASSERT_TRUE(isFreed(running));
    EXPECT_EQ(running.get().outcome, SSHExecuteResult::Outcome::ConnectionLost);
    expectDisconnectedAndUsable();
}

TEST_F(SessionInterrupt, DoesNothingWithoutAConnection)
{
    session().interrupt();
    EXPECT_EQ(session().getState(), State::Disconnected);
    EXPECT_EQ(session().getLastError(), "");
}

TEST_F(SessionInterrupt, DoesNotSpoilAConnectThatComesAfterIt)
{
    const ScriptedServer server;
    session().interrupt();
    session().interrupt();
    EXPECT_TRUE(logIn(server.port())) << session().getLastError();
    EXPECT_TRUE(session().disconnect());
    session().interrupt();
    EXPECT_TRUE(logIn(server.port())) << session().getLastError();
}

TEST_F(SessionInterrupt, EndsAnIdleConnection)
{
    const ScriptedServer server;
    ASSERT_TRUE(logIn(server.port()));
    session().interrupt();
    EXPECT_EQ(session().getState(), State::Disconnected);
    EXPECT_TRUE(server.events().waitFor(ServerEvent::Kind::Disconnected));
    expectDisconnectedAndUsable();
}

TEST_F(SessionInterrupt, EndsAConnectionThatBroughtOutputWhichNobodyRead)
{
    ScriptedPolicy policy;
    policy.run = [](ScriptedChannel& channel) {
        // More than libssh takes in together with the answer to the start.
        channel.writeOutput(std::string(1'000'000, 'x'));
        channel.waitForClose();
    };
    const ScriptedServer server(policy);
    ASSERT_TRUE(logIn(server.port()));
    const auto process = session().createProcess("anything");
    ASSERT_NE(process, nullptr);
    ASSERT_TRUE(process->start());
    ASSERT_TRUE(waitUntil([&] { return unreadBytes(server.port()) > 0; }));
    session().interrupt();
    expectDisconnectedAndUsable();
}

TEST_F(SessionInterrupt, MayComeAtAnyMomentOfASessionsLife)
{
    const ScriptedServer server;
    std::atomic<bool> done{false};
    std::thread canceller([&] {
        while (!done) {
            session().interrupt();
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
    });
    address(session(), server.port(), "anybody");
    for (int round = 0; round < 30; ++round) {
        if (session().connect()) {
            static_cast<void>(session().hostAuthenticate(HostAuthenticatorNone()));
        }
        session().disconnect();
        EXPECT_EQ(session().getState(), State::Disconnected);
    }
    done = true;
    canceller.join();
    EXPECT_TRUE(logIn(server.port())) << session().getLastError();
}

class InterruptStoppedServer : public OpenSshTest
{};

TEST_F(InterruptStoppedServer, FreesAnAuthentication)
{
    TcpProxy line(server().port());
    ASSERT_TRUE(session().setPortNumber(line.port()));
    ASSERT_TRUE(connectTrusting(session()));
    server().suspendAll();
    const auto sent = line.forwardedBytes(TcpProxy::ToServer);
    auto answer = std::async(std::launch::async,
                             [this] { return offerKey(session(), server().clientKey()); });
    ASSERT_TRUE(waitUntil([&] { return line.forwardedBytes(TcpProxy::ToServer) > sent; }));

    session().interrupt();
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(1)), std::future_status::ready);
    EXPECT_EQ(answer.get(), AuthenticateUserResult::Error);
    EXPECT_EQ(session().getState(), State::Disconnected);

    server().resumeAll();
    ASSERT_TRUE(logIn()) << session().getLastError();
    EXPECT_TRUE(runsCommands(session()));
}

} // namespace

} // namespace TarnisTest
