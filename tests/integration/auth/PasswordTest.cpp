#include "integration/session/SessionSteps.h"
#include "support/PasswordSshServer.h"
#include "support/ScriptedServer.h"

#include <gtest/gtest.h>

namespace TarnisTest {

using namespace Tarnis;
using namespace std::string_literals;

namespace {

using Result = AuthenticateUserResult;

class Password : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!requireServer(PasswordSshServer::availability())) {
            return;
        }
        server_.emplace();
    }

    PasswordSshServer& server() { return *server_; }

    SSHSession& session() { return session_; }

    void connectTo(Login login, const std::string& user)
    {
        address(session(), server().port(login), user);
        ASSERT_TRUE(connectTrusting(session())) << session().getLastError();
    }

    std::optional<Result> tryPassword(const std::string& password)
    {
        return authenticate(session(), UserAuthenticatorPassword(password));
    }

    void expectStillToBeAuthenticated()
    {
        EXPECT_EQ(session().getState(), RemoteSessionState::UserAuthenticating);
    }

private:
    std::optional<PasswordSshServer> server_;
    SSHSession session_;
};

TEST_F(Password, LetsTheUserInWhenItIsRight)
{
    connectTo(Login::Password, server().user());
    EXPECT_EQ(tryPassword(server().password()), Result::Success);
    EXPECT_EQ(session().getState(), RemoteSessionState::Authenticated);
    EXPECT_TRUE(runsCommands(session()));
}

TEST_F(Password, IsDeniedWhenItIsWrongAndMayBeTriedAgain)
{
    connectTo(Login::Password, server().user());
    EXPECT_EQ(tryPassword("wrong"), Result::Denied);
    expectStillToBeAuthenticated();
    EXPECT_EQ(tryPassword(server().password() + " "), Result::Denied);
    expectStillToBeAuthenticated();
    EXPECT_EQ(tryPassword(server().password()), Result::Success);
    EXPECT_TRUE(runsCommands(session()));
}

TEST_F(Password, IsDeniedByTheServerWhenItIsEmptyAndTheUserHasOne)
{
    connectTo(Login::Password, server().user());
    EXPECT_EQ(tryPassword(""), Result::Denied);
    expectStillToBeAuthenticated();
    EXPECT_EQ(tryPassword(server().password()), Result::Success);
}

TEST(PasswordOnAScriptedServer, IsSentEmptyAndMayBeTheRightOne)
{
    ScriptedPolicy policy;
    policy.authenticate = [](const ServerEvent& attempt) {
        return attempt.method == AuthMethod::Password && attempt.password.empty()
                   ? AuthReply::accept()
                   : AuthReply::deny();
    };
    const ScriptedServer scripted(policy);
    SSHSession session;
    address(session, scripted.port(), "anybody");
    ASSERT_TRUE(connectTrusting(session)) << session.getLastError();
    EXPECT_EQ(authenticate(session, UserAuthenticatorPassword("wrong")), Result::Denied);
    EXPECT_EQ(authenticate(session, UserAuthenticatorPassword("")), Result::Success)
        << session.getLastError();
    EXPECT_EQ(session.getState(), RemoteSessionState::Authenticated);

    const auto attempts = scripted.events().ofKind(ServerEvent::Kind::Authentication);
    ASSERT_EQ(attempts.size(), 2U);
    EXPECT_EQ(attempts.front().password, "wrong");
    EXPECT_EQ(attempts.back().method, AuthMethod::Password);
    EXPECT_EQ(attempts.back().password, "");
}

TEST_F(Password, IsDeniedUnsentWhenItHoldsANulByte)
{
    connectTo(Login::Password, server().user());
    EXPECT_EQ(tryPassword(server().password() + "\0hidden"s), Result::Denied);
    expectStillToBeAuthenticated();
    EXPECT_EQ(server().log().find("Failed password"), std::string::npos);
    EXPECT_EQ(tryPassword(server().password()), Result::Success);
}

TEST_F(Password, IsDeniedForAnUnknownUser)
{
    connectTo(Login::Password, "nobody-of-that-name");
    EXPECT_EQ(tryPassword(server().password()), Result::Denied);
    expectStillToBeAuthenticated();
}

TEST_F(Password, IsDeniedWhereTheServerWantsAnAnswerToAPrompt)
{
    connectTo(Login::KeyboardInteractive, server().user());
    EXPECT_EQ(tryPassword(server().password()), Result::Denied);
    expectStillToBeAuthenticated();
}

TEST_F(Password, IsAnErrorOnceTheServerHasSeenTooManyWrongOnes)
{
    connectTo(Login::Password, server().user());
    std::optional<Result> result = Result::Denied;
    for (int attempt = 0; attempt < 50 && result == Result::Denied; ++attempt) {
        result = tryPassword("wrong");
    }
    EXPECT_EQ(result, Result::Error);
    EXPECT_NE(session().getLastError(), "");
    EXPECT_EQ(session().getState(), RemoteSessionState::Disconnected);
    EXPECT_EQ(tryPassword(server().password()), std::nullopt);

    ASSERT_TRUE(connectTrusting(session())) << session().getLastError();
    EXPECT_EQ(tryPassword(server().password()), Result::Success);
}

TEST_F(Password, IsNotNeededWhereTheServerLetsTheUserInWithoutProof)
{
    connectTo(Login::EmptyPassword, server().userWithoutPassword());
    EXPECT_EQ(authenticate(session(), UserAuthenticatorNone()), Result::Success);
    EXPECT_EQ(session().getState(), RemoteSessionState::Authenticated);
    EXPECT_TRUE(runsCommands(session()));
}

} // namespace

} // namespace TarnisTest
