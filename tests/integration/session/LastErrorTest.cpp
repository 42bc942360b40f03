#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"
#include "support/ScriptedServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TarnisTest {

using namespace Tarnis;
using ::testing::HasSubstr;

namespace {

class SessionLastError : public ::testing::Test
{
protected:
    SessionLastError() { address(session_, refusing_.port(), "anybody"); }

    SSHSession& session() { return session_; }

private:
    const RefusingPort refusing_;
    SSHSession session_;
};

TEST_F(SessionLastError, IsEmptyBeforeAnythingFailed)
{
    EXPECT_EQ(session().getLastError(), "");
}

TEST_F(SessionLastError, TellsWhyConnectFailed)
{
    ASSERT_FALSE(session().connect());
    EXPECT_THAT(session().getLastError(), HasSubstr("refused"));
}

TEST_F(SessionLastError, StaysUntilTheNextAttemptWhateverIsAskedOfTheSession)
{
    ASSERT_FALSE(session().connect());
    const std::string why = session().getLastError();
    ASSERT_NE(why, "");

    EXPECT_EQ(session().getState(), RemoteSessionState::Disconnected);
    EXPECT_FALSE(session().isConnected());
    EXPECT_FALSE(session().disconnect());
    EXPECT_EQ(session().getHostName(), kLoopback);
    EXPECT_TRUE(session().setUserName("somebody"));
    EXPECT_EQ(session().hostAuthenticate(HostAuthenticatorNone()), nullptr);
    EXPECT_EQ(session().userAuthenticate(UserAuthenticatorNone()), nullptr);
    session().interrupt();
    EXPECT_EQ(session().getLastError(), why);
}

TEST_F(SessionLastError, IsThatOfTheLastAttempt)
{
    ASSERT_FALSE(session().connect());
    const std::string refused = session().getLastError();

    ScriptedPolicy policy;
    policy.handshake = Handshake::CloseAfterBanner;
    const ScriptedServer closing(policy);
    ASSERT_TRUE(session().setPortNumber(closing.port()));
    EXPECT_EQ(session().getLastError(), refused);
    ASSERT_FALSE(session().connect());
    EXPECT_NE(session().getLastError(), refused);
    EXPECT_NE(session().getLastError(), "");

    const ScriptedServer good;
    ASSERT_TRUE(session().setPortNumber(good.port()));
    ASSERT_TRUE(session().connect()) << session().getLastError();
    EXPECT_EQ(session().getLastError(), "");
}

TEST_F(SessionLastError, TellsWhyTheUserWasDenied)
{
    const ScriptedServer server;
    ASSERT_TRUE(session().setPortNumber(server.port()));
    ASSERT_TRUE(connectTrusting(session()));
    ASSERT_EQ(authenticate(session(), UserAuthenticatorPassword("wrong")),
              AuthenticateUserResult::Denied);
    EXPECT_THAT(session().getLastError(), HasSubstr("denied"));
}

} // namespace

} // namespace TarnisTest
