// The time limit, shortened.

#include "handles/SSHCallLimits.h"
#include "integration/session/SessionSteps.h"
#include "support/ScriptedServer.h"

#include <FileSystem/Failure.h>
#include <Tarnis/SSHFailureCode.h>

#include <gtest/gtest.h>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using Result = AuthenticateUserResult;

class SilentLogin : public ::testing::Test
{
protected:
    void TearDown() override { SSHCallLimits::setRetryLimit(SSHCallLimits::defaultRetryLimit); }

    /// A server that says nothing more to the first user who wants in; later ones it serves.
    void serveSilentlyOnce()
    {
        ScriptedPolicy policy;
        policy.authenticate = [](const ServerEvent& attempt) {
            return attempt.connection == 1 ? AuthReply::silence() : AuthReply::accept();
        };
        serve(std::move(policy));
    }

    void serve(ScriptedPolicy policy)
    {
        server_.emplace(std::move(policy));
        address(session_, server_->port(), "anybody");
        ASSERT_TRUE(connectTrusting(session_)) << session_.getLastError();
    }

    void expectDeniedAfterTheLimit(const UserAuthenticator& authenticator)
    {
        SSHCallLimits::setRetryLimit(std::chrono::milliseconds(300));
        EXPECT_EQ(authenticate(session_, authenticator), Result::Denied);
        EXPECT_EQ(FileSystem::Failure::last().code(), SSHFailureCode::TimedOut);
        EXPECT_EQ(session_.getState(), RemoteSessionState::UserAuthenticating);
        SSHCallLimits::setRetryLimit(SSHCallLimits::defaultRetryLimit);
    }

    void expectUsableAgain()
    {
        EXPECT_TRUE(returnsWithinASecond([this] { EXPECT_TRUE(session_.disconnect()); }));
        ASSERT_TRUE(connectTrusting(session_)) << session_.getLastError();
        EXPECT_EQ(authenticate(session_, UserAuthenticatorPassword("any")), Result::Success);
    }

private:
    std::optional<ScriptedServer> server_;
    SSHSession session_;
};

TEST_F(SilentLogin, IsDeniedForAPassword)
{
    serveSilentlyOnce();
    expectDeniedAfterTheLimit(UserAuthenticatorPassword("any"));
    expectUsableAgain();
}

TEST_F(SilentLogin, IsDeniedForNothing)
{
    serveSilentlyOnce();
    expectDeniedAfterTheLimit(UserAuthenticatorNone());
    expectUsableAgain();
}

TEST_F(SilentLogin, IsDeniedForAKey)
{
    const TemporaryDirectory directory;
    serveSilentlyOnce();
    expectDeniedAfterTheLimit(
        UserAuthenticatorPrivateKeyFile(generateKey(directory, "key").privatePath, ""));
    expectUsableAgain();
}

TEST_F(SilentLogin, IsDeniedForAnAutomaticKey)
{
    const TemporaryDirectory directory;
    directory.makeDirectory(".ssh");
    generateKey(directory, ".ssh/id_ed25519");
    const HomeForATime home(directory.path().string());
    serveSilentlyOnce();
    expectDeniedAfterTheLimit(UserAuthenticatorPrivateKeyAuto());
    expectUsableAgain();
}

TEST_F(SilentLogin, IsDeniedWhenTheServerNeverOpensTheService)
{
    ScriptedPolicy policy;
    policy.openService = [](const ServerEvent& request) {
        return request.connection == 1 ? Answer::Silence : Answer::Accept;
    };
    policy.authenticate = [](const ServerEvent&) { return AuthReply::accept(); };
    serve(std::move(policy));
    expectDeniedAfterTheLimit(UserAuthenticatorPassword("any"));
    expectUsableAgain();
}

} // namespace

} // namespace TarnisTest
