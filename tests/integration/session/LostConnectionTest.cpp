#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"
#include "support/PseudoRandom.h"
#include "support/ScriptedServer.h"
#include "support/TcpProxy.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using State = RemoteSessionState;

class LostConnection : public OpenSshTest
{};

/// A session on a server that asks for a sign of life every second. The idle session reads none of
/// that, so what the server says last is left unread.
class LostTalkingServer : public LostConnection
{
protected:
    void SetUp() override
    {
        LostConnection::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        OpenSshOptions options;
        options.extraLines = {"ClientAliveInterval 1", "ClientAliveCountMax 1000"};
        startServer(options);
        line_.emplace(server().port());
        ASSERT_TRUE(session().setPortNumber(line_->port()));
        ASSERT_TRUE(logIn()) << session().getLastError();
    }

    bool waitUntilItTalks() const
    {
        const auto received = line_->forwardedBytes(TcpProxy::ToClient);
        return waitUntil([&] { return line_->forwardedBytes(TcpProxy::ToClient) > received; });
    }

    void expectLossNoticed()
    {
        server().killAll();
        EXPECT_TRUE(waitUntil([this] { return session().getState() == State::Disconnected; }));
    }

private:
    std::optional<TcpProxy> line_;
};

TEST_F(LostConnection, IsNoticedByGetStateBeforeTheHostIsAccepted)
{
    ASSERT_TRUE(session().connect());
    server().killAll();
    EXPECT_TRUE(waitUntil([this] { return session().getState() == State::Disconnected; }));
}

TEST_F(LostConnection, IsNoticedByGetStateBeforeTheUserIsAccepted)
{
    ASSERT_TRUE(connectTrusting(session()));
    server().killAll();
    EXPECT_TRUE(waitUntil([this] { return session().getState() == State::Disconnected; }));
}

TEST_F(LostConnection, IsNoticedByGetStateOfAnIdleSession)
{
    ASSERT_TRUE(logIn());
    server().killAll();
    EXPECT_TRUE(waitUntil([this] { return session().getState() == State::Disconnected; }));
}

TEST_F(LostConnection, IsNoticedByIsConnected)
{
    ASSERT_TRUE(logIn());
    server().killAll();
    EXPECT_TRUE(waitUntil([this] { return !session().isConnected(); }));
    EXPECT_EQ(session().getState(), State::Disconnected);
}

TEST_F(LostConnection, IsNoticedByIsAuthenticated)
{
    ASSERT_TRUE(logIn());
    server().killAll();
    EXPECT_TRUE(waitUntil([this] { return !session().isAuthenticated(); }));
    EXPECT_EQ(session().getState(), State::Disconnected);
}

TEST_F(LostConnection, IsNoticedByIsAuthenticating)
{
    ASSERT_TRUE(connectTrusting(session()));
    server().killAll();
    EXPECT_TRUE(waitUntil([this] { return !session().isAuthenticating(); }));
    EXPECT_EQ(session().getState(), State::Disconnected);
}

TEST_F(LostConnection, IsNoticedByASecondConnect)
{
    ASSERT_TRUE(logIn());
    server().killConnections();
    ASSERT_TRUE(waitUntil([this] { return session().connect(); })) << session().getLastError();
    EXPECT_EQ(session().getState(), State::HostAuthenticating);
}

TEST_F(LostConnection, HoldsNoSocketOnceItIsDisconnected)
{
    ASSERT_TRUE(logIn());
    server().killAll();
    ASSERT_TRUE(waitUntil([this] { return session().getState() == State::Disconnected; }));
    EXPECT_FALSE(session().disconnect());
    EXPECT_TRUE(socketsConnectedTo(server().port()).empty());
}

TEST_F(LostConnection, IsNoticedAfterACommandHasRun)
{
    ASSERT_TRUE(logIn());
    ASSERT_TRUE(runsCommands(session()));
    const auto process = session().createProcess("true");
    ASSERT_NE(process, nullptr);
    ASSERT_TRUE(process->start());
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->readAll(false), "");
    server().killAll();
    EXPECT_TRUE(waitUntil([this] { return session().getState() == State::Disconnected; }));
}

TEST_F(LostTalkingServer, IsNoticedThoughAProcessWasNotStartedYet)
{
    const auto process = session().createProcess("true");
    ASSERT_NE(process, nullptr);
    ASSERT_TRUE(waitUntilItTalks());
    expectLossNoticed();
}

TEST_F(LostTalkingServer, IsNoticedThoughItsLastBytesAreUnread)
{
    ASSERT_TRUE(waitUntilItTalks());
    EXPECT_TRUE(session().isConnected());
    expectLossNoticed();
}

TEST_F(LostConnection, MakesEveryOperationOnTheSessionFailAndNoneHang)
{
    ASSERT_TRUE(logIn());
    const auto process = session().createProcess("cat");
    ASSERT_NE(process, nullptr);
    server().killAll();
    EXPECT_FALSE(process->start());
    EXPECT_EQ(session().execute("true").outcome, SSHExecuteResult::Outcome::NotStarted);
    EXPECT_EQ(session().getState(), State::Disconnected);
    EXPECT_EQ(session().userAuthenticate(UserAuthenticatorNone()), nullptr);
    EXPECT_EQ(session().hostAuthenticate(HostAuthenticatorNone()), nullptr);
}

TEST_F(LostConnection, MakesAnAuthenticationAnError)
{
    ASSERT_TRUE(connectTrusting(session()));
    server().killAll();
    EXPECT_EQ(offerKey(session(), server().clientKey()), AuthenticateUserResult::Error);
    EXPECT_NE(session().getLastError(), "");
    EXPECT_EQ(session().getState(), State::Disconnected);
}

/// Reads a stream to its end; what arrived, and whether the end was a proper one.
struct WholeStream
{
    std::string bytes;
    SSHChannelTransfer::Status end = SSHChannelTransfer::Status::Error;
};

WholeStream readWholeStream(const SSHProcess& process)
{
    using Status = SSHChannelTransfer::Status;
    WholeStream stream;
    std::array<char, 4096> piece{};
    for (;;) {
        const auto transfer = process.readSome(piece.data(), piece.size(), false, kGenerousLimit);
        if (transfer.status != Status::Transferred) {
            stream.end = transfer.status;
            return stream;
        }
        stream.bytes.append(piece.data(), transfer.count);
    }
}

ScriptedPolicy writingThenDropping(const std::string& output)
{
    ScriptedPolicy policy;
    policy.run = [output](ScriptedChannel& channel) {
        channel.writeOutput(output);
        channel.finish(3);
        channel.dropConnection();
    };
    return policy;
}

bool logInTo(SSHSession& session, const ScriptedServer& server)
{
    address(session, server.port(), "anybody");
    return connectTrusting(session) &&
           authenticate(session, UserAuthenticatorPassword(ScriptedPolicy::kPassword)) ==
               AuthenticateUserResult::Success;
}

TEST(LostConnectionScripted, LeavesTheOutputOfAFinishedProcessReadable)
{
    const std::string output = pseudoRandomBytes(1, 50'000);
    const ScriptedServer server(writingThenDropping(output));
    SSHSession session;
    ASSERT_TRUE(logInTo(session, server));
    const auto process = session.createProcess("anything");
    ASSERT_NE(process, nullptr);
    ASSERT_TRUE(process->start());
    ASSERT_TRUE(server.events().waitFor(ServerEvent::Kind::Disconnected));

    // Asking for the state must not throw away what has not been read.
    EXPECT_TRUE(session.isConnected());
    const WholeStream stream = readWholeStream(*process);
    EXPECT_EQ(stream.end, SSHChannelTransfer::Status::EndOfStream);
    EXPECT_EQ(stream.bytes.size(), output.size());
    EXPECT_TRUE(stream.bytes == output);
    EXPECT_EQ(process->getExitCode(), 3);
    EXPECT_TRUE(waitUntil([&] { return session.getState() == State::Disconnected; }));
}

TEST(LostConnectionScripted, IsLeftForANewOneThoughOutputIsUnread)
{
    const ScriptedServer server(writingThenDropping(pseudoRandomBytes(1, 50'000)));
    SSHSession session;
    ASSERT_TRUE(logInTo(session, server));
    const auto process = session.createProcess("anything");
    ASSERT_NE(process, nullptr);
    ASSERT_TRUE(process->start());
    ASSERT_TRUE(server.events().waitFor(ServerEvent::Kind::Disconnected));
    EXPECT_TRUE(session.isConnected());
    ASSERT_TRUE(waitUntil([&] { return logInTo(session, server); })) << session.getLastError();
    EXPECT_EQ(session.getState(), State::Authenticated);
    EXPECT_FALSE(process->isValid());
}

TEST(LostConnectionScripted, IsNoticedWhenTheServerDropsAnIdleSession)
{
    ScriptedServer server;
    SSHSession session;
    ASSERT_TRUE(logInTo(session, server));
    server.dropConnections();
    EXPECT_TRUE(waitUntil([&] { return !session.isAuthenticated(); }));
}

} // namespace

} // namespace TarnisTest
