#include "integration/session/SessionSteps.h"
#include "support/PasswordSshServer.h"

#include <gtest/gtest.h>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using Result = AuthenticateUserResult;

class TwoStepLogin : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!requireServer(PasswordSshServer::availability())) {
            return;
        }
        server_.emplace();
        address(session(), server().port(Login::KeyThenPassword), server().user());
        ASSERT_TRUE(connectTrusting(session())) << session().getLastError();
    }

    PasswordSshServer& server() { return *server_; }

    SSHSession& session() { return session_; }

    std::optional<Result> tryPassword(const std::string& password)
    {
        return authenticate(session(), UserAuthenticatorPassword(password));
    }

    void expectStillToBeAuthenticated()
    {
        EXPECT_EQ(session().getState(), RemoteSessionState::UserAuthenticating);
        EXPECT_FALSE(session().isAuthenticated());
        EXPECT_EQ(session().execute("true").outcome, SSHExecuteResult::Outcome::NotStarted);
    }

private:
    std::optional<PasswordSshServer> server_;
    SSHSession session_;
};

TEST_F(TwoStepLogin, TakesAKeyAndThenAPassword)
{
    EXPECT_EQ(offerKey(session(), server().clientKey()), Result::Partial);
    expectStillToBeAuthenticated();
    EXPECT_EQ(tryPassword(server().password()), Result::Success);
    EXPECT_EQ(session().getState(), RemoteSessionState::Authenticated);
    EXPECT_TRUE(runsCommands(session()));
}

TEST_F(TwoStepLogin, DoesNotTakeThePasswordFirst)
{
    EXPECT_EQ(tryPassword(server().password()), Result::Denied);
    expectStillToBeAuthenticated();
    EXPECT_EQ(offerKey(session(), server().clientKey()), Result::Partial);
    EXPECT_EQ(tryPassword(server().password()), Result::Success);
}

TEST_F(TwoStepLogin, MayGoOnAfterAWrongPassword)
{
    EXPECT_EQ(offerKey(session(), server().clientKey()), Result::Partial);
    EXPECT_EQ(tryPassword("wrong"), Result::Denied);
    expectStillToBeAuthenticated();
    EXPECT_EQ(tryPassword(server().password()), Result::Success);
    EXPECT_TRUE(runsCommands(session()));
}

TEST_F(TwoStepLogin, StartsAtTheFirstStepOnANewConnection)
{
    EXPECT_EQ(offerKey(session(), server().clientKey()), Result::Partial);
    ASSERT_TRUE(session().disconnect());
    ASSERT_TRUE(connectTrusting(session())) << session().getLastError();
    EXPECT_EQ(tryPassword(server().password()), Result::Denied);
}

} // namespace

} // namespace TarnisTest
