#include "integration/session/SessionSteps.h"
#include "support/ScriptedServer.h"

#include <gtest/gtest.h>

namespace TarnisTest {

using namespace Tarnis;

namespace {

TEST(SessionConnectLimit, EndsAnAttemptAtAServerThatNeverSpeaksAfterAHundredSeconds)
{
    using Clock = std::chrono::steady_clock;
    ScriptedPolicy policy;
    policy.handshake = Handshake::SendNothing;
    const ScriptedServer silent(policy);
    SSHSession session;
    address(session, silent.port(), "anybody");

    const auto start = Clock::now();
    EXPECT_FALSE(session.connect());
    const auto taken = Clock::now() - start;
    EXPECT_EQ(session.getState(), RemoteSessionState::Disconnected);
    EXPECT_GE(taken, std::chrono::seconds(99));
    EXPECT_LE(taken, std::chrono::seconds(110));

    const ScriptedServer good;
    ASSERT_TRUE(session.setPortNumber(good.port()));
    EXPECT_TRUE(connectTrusting(session)) << session.getLastError();
}

} // namespace

} // namespace TarnisTest
