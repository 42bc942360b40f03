// What real servers do rarely or never.

#include "integration/session/SessionSteps.h"
#include "support/ScriptedServer.h"

#include <gtest/gtest.h>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using Result = AuthenticateUserResult;

class ScriptedLogin : public ::testing::Test
{
protected:
    void serve(ScriptedPolicy policy)
    {
        server_.emplace(std::move(policy));
        address(session_, server_->port(), "alice");
        ASSERT_TRUE(connectTrusting(session_)) << session_.getLastError();
    }

    void answerEveryAttemptWith(AuthReply reply)
    {
        ScriptedPolicy policy;
        policy.authenticate = [reply = std::move(reply)](const ServerEvent&) { return reply; };
        serve(std::move(policy));
    }

    SSHSession& session() { return session_; }

    std::optional<Result> tryPassword(const std::string& password = "any")
    {
        return authenticate(session(), UserAuthenticatorPassword(password));
    }

    std::vector<ServerEvent> attempts() const
    {
        return server_->events().ofKind(ServerEvent::Kind::Authentication);
    }

    void expectLostConnection()
    {
        EXPECT_EQ(session().getState(), RemoteSessionState::Disconnected);
        EXPECT_NE(session().getLastError(), "");
    }

private:
    std::optional<ScriptedServer> server_;
    SSHSession session_;
};

TEST_F(ScriptedLogin, NeedsNoProofWhereTheServerWantsNone)
{
    answerEveryAttemptWith(AuthReply::accept());
    EXPECT_EQ(authenticate(session(), UserAuthenticatorNone()), Result::Success);
    EXPECT_EQ(session().getState(), RemoteSessionState::Authenticated);
    ASSERT_EQ(attempts().size(), 1U);
    EXPECT_EQ(attempts().front().method, AuthMethod::None);
    EXPECT_EQ(attempts().front().user, "alice");
}

TEST_F(ScriptedLogin, SendsThePasswordByteForByte)
{
    const std::string password = " p\xc3\xa4ss\tw\"o'r\\d \xff\x01 ";
    answerEveryAttemptWith(AuthReply::accept());
    EXPECT_EQ(tryPassword(password), Result::Success);
    ASSERT_EQ(attempts().size(), 1U);
    EXPECT_EQ(attempts().front().password, password);
    EXPECT_EQ(attempts().front().user, "alice");
}

TEST_F(ScriptedLogin, SendsALongPassword)
{
    const std::string password(10'000, 'x');
    answerEveryAttemptWith(AuthReply::accept());
    EXPECT_EQ(tryPassword(password), Result::Success);
    ASSERT_EQ(attempts().size(), 1U);
    EXPECT_EQ(attempts().front().password, password);
}

TEST_F(ScriptedLogin, IsDeniedAsOftenAsTheServerLikes)
{
    answerEveryAttemptWith(AuthReply::deny());
    for (int attempt = 0; attempt < 20; ++attempt) {
        EXPECT_EQ(tryPassword(), Result::Denied);
    }
    EXPECT_EQ(session().getState(), RemoteSessionState::UserAuthenticating);
    EXPECT_EQ(attempts().size(), 20U);
}

TEST_F(ScriptedLogin, IsPartialWhenTheServerWantsMore)
{
    answerEveryAttemptWith(AuthReply::partial({AuthMethod::PublicKey, AuthMethod::Password}));
    EXPECT_EQ(tryPassword(), Result::Partial);
    EXPECT_EQ(session().getState(), RemoteSessionState::UserAuthenticating);
    EXPECT_EQ(tryPassword(), Result::Partial);
    EXPECT_EQ(authenticate(session(), UserAuthenticatorNone()), Result::Partial);
}

// It breaks the protocol, and libssh listens to the server no more.
TEST_F(ScriptedLogin, IsAnErrorWhenAPasswordIsAnsweredByAQuestion)
{
    answerEveryAttemptWith(AuthReply::ask("name", "instruction", {{"Password: "}}));
    EXPECT_EQ(tryPassword(), Result::Error);
    EXPECT_FALSE(session().isAuthenticated());
    EXPECT_TRUE(session().disconnect());
    EXPECT_TRUE(connectTrusting(session())) << session().getLastError();
}

TEST_F(ScriptedLogin, IsAnErrorWhenTheServerDropsTheConnection)
{
    answerEveryAttemptWith(AuthReply::drop());
    EXPECT_EQ(tryPassword(), Result::Error);
    expectLostConnection();
}

TEST_F(ScriptedLogin, IsAnErrorWhenTheServerDropsTheConnectionOverAKey)
{
    const TemporaryDirectory directory;
    const KeyPair key = generateKey(directory, "key");
    answerEveryAttemptWith(AuthReply::drop());
    EXPECT_EQ(offerKey(session(), key), Result::Error);
    expectLostConnection();
}

TEST_F(ScriptedLogin, IsAnErrorWhenTheServerDropsTheConnectionOverNothing)
{
    answerEveryAttemptWith(AuthReply::drop());
    EXPECT_EQ(authenticate(session(), UserAuthenticatorNone()), Result::Error);
    expectLostConnection();
}

TEST_F(ScriptedLogin, IsAnErrorWhenTheServerDropsTheConnectionAtTheRequestForTheService)
{
    ScriptedPolicy policy;
    policy.openService = [](const ServerEvent&) { return Answer::Drop; };
    serve(policy);
    EXPECT_EQ(tryPassword(), Result::Error);
    expectLostConnection();
}

TEST_F(ScriptedLogin, DoesNotSucceedWhenTheServerRefusesTheService)
{
    ScriptedPolicy policy;
    policy.openService = [](const ServerEvent&) { return Answer::Refuse; };
    serve(policy);
    const auto result = tryPassword(ScriptedPolicy::kPassword);
    EXPECT_TRUE(result == Result::Denied || result == Result::Error)
        << ::testing::PrintToString(result);
    EXPECT_FALSE(session().isAuthenticated());
}

TEST_F(ScriptedLogin, TakesNoteOfNoBanner)
{
    ScriptedPolicy policy;
    policy.issueBanner = "Authorized users only.\r\nEvery other one is prosecuted.\r\n";
    serve(policy);
    EXPECT_EQ(tryPassword("wrong"), Result::Denied);
    EXPECT_EQ(tryPassword(ScriptedPolicy::kPassword), Result::Success);
}

TEST_F(ScriptedLogin, CanBeMixedFromAllMethods)
{
    const TemporaryDirectory directory;
    const KeyPair key = generateKey(directory, "key");
    ScriptedPolicy policy;
    policy.authenticate = [](const ServerEvent& attempt) {
        return attempt.method == AuthMethod::Password && attempt.password == "right"
                   ? AuthReply::accept()
                   : AuthReply::deny();
    };
    serve(policy);
    EXPECT_EQ(authenticate(session(), UserAuthenticatorNone()), Result::Denied);
    EXPECT_EQ(offerKey(session(), key), Result::Denied);
    EXPECT_EQ(authenticate(session(), UserAuthenticatorPrivateKeyAuto()), Result::Denied);
    EXPECT_EQ(tryPassword("wrong"), Result::Denied);
    EXPECT_EQ(tryPassword("right"), Result::Success);
    EXPECT_EQ(session().getState(), RemoteSessionState::Authenticated);
}

} // namespace

} // namespace TarnisTest
