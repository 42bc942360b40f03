// The time limit, shortened.

#include "handles/SSHCallLimits.h"
#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"
#include "support/ScriptedServer.h"

#include <FileSystem/Failure.h>
#include <Tarnis/SSHFailureCode.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TarnisTest {

using namespace Tarnis;

namespace {

class SilentServer : public ::testing::Test
{
protected:
    void TearDown() override { SSHCallLimits::setRetryLimit(SSHCallLimits::defaultRetryLimit); }

    SSHSession& session() { return session_; }

    void expectConnectGivesUp(std::uint16_t port)
    {
        address(session(), port, "anybody");
        SSHCallLimits::setRetryLimit(std::chrono::milliseconds(300));
        EXPECT_FALSE(session().connect());
        EXPECT_EQ(FileSystem::Failure::last().code(), SSHFailureCode::TimedOut);
        EXPECT_EQ(session().getState(), RemoteSessionState::Disconnected);
        EXPECT_THAT(session().getLastError(), testing::HasSubstr("Timeout connecting"));
        SSHCallLimits::setRetryLimit(SSHCallLimits::defaultRetryLimit);
    }

    void expectConnectsElsewhere()
    {
        const ScriptedServer good;
        address(session(), good.port(), "anybody");
        ASSERT_TRUE(connectTrusting(session())) << session().getLastError();
        EXPECT_EQ(authenticate(session(), UserAuthenticatorPassword(ScriptedPolicy::kPassword)),
                  AuthenticateUserResult::Success);
    }

    void expectGivesUpAndConnectsElsewhere(Handshake handshake)
    {
        ScriptedPolicy policy;
        policy.handshake = handshake;
        const ScriptedServer silent(policy);
        expectConnectGivesUp(silent.port());
        EXPECT_EQ(silent.connectionCount(), 1U);
        expectConnectsElsewhere();
    }

private:
    SSHSession session_;
};

TEST_F(SilentServer, IsGivenUpWhenItNeverSpeaks)
{
    expectGivesUpAndConnectsElsewhere(Handshake::SendNothing);
}

TEST_F(SilentServer, IsGivenUpWhenItStopsAfterItsBanner)
{
    expectGivesUpAndConnectsElsewhere(Handshake::BannerOnly);
}

TEST_F(SilentServer, IsGivenUpWhenItStopsDuringTheKeyExchange)
{
    expectGivesUpAndConnectsElsewhere(Handshake::StopAfterKexInit);
}

TEST_F(SilentServer, IsGivenUpWhenItsMachineNeverAnswersTheHandshake)
{
    const FullListener full;
    expectConnectGivesUp(full.port());
    expectConnectsElsewhere();
}

TEST_F(SilentServer, IsGivenUpTwiceInARow)
{
    ScriptedPolicy policy;
    policy.handshake = Handshake::BannerOnly;
    const ScriptedServer silent(policy);
    expectConnectGivesUp(silent.port());
    expectConnectGivesUp(silent.port());
    expectConnectsElsewhere();
}

TEST_F(SilentServer, SeesTheConnectionClosedOnceItIsGivenUp)
{
    ScriptedPolicy policy;
    policy.handshake = Handshake::SendNothing;
    const ScriptedServer silent(policy);
    expectConnectGivesUp(silent.port());
    EXPECT_TRUE(socketsConnectedTo(silent.port()).empty());
    EXPECT_TRUE(
        silent.events().waitFor(ServerEvent::Kind::Disconnected, 1, std::chrono::seconds(5)));
}

} // namespace

} // namespace TarnisTest
