// Authentication runs without blocking inside; the calls after it must block again. Over a line
// with a delay, a call that does not wait for its answer fails.

#include "integration/session/SessionSteps.h"
#include "support/ScriptedServer.h"
#include "support/TcpProxy.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using Result = AuthenticateUserResult;

class BlockingMode : public ::testing::Test
{
protected:
    /// A server that answers the attempts of a session with these, in their order.
    void serve(std::vector<AuthReply> replies)
    {
        ScriptedPolicy policy;
        policy.authenticate = [replies = std::move(replies),
                               next = std::make_shared<std::atomic<std::size_t>>(0)](
                                  const ServerEvent&) { return replies.at((*next)++); };
        server_.emplace(policy);
        line_.emplace(server_->port());
        line_->setDelay(TcpProxy::ToClient, std::chrono::milliseconds(100));
        address(session_, line_->port(), "anybody");
        ASSERT_TRUE(connectTrusting(session_)) << session_.getLastError();
    }

    std::optional<Result> attempt()
    {
        return authenticate(session_, UserAuthenticatorPassword("any"));
    }

    void expectBlockingCallsToBlock()
    {
        const auto process = session_.createProcess("anything");
        ASSERT_NE(process, nullptr);
        EXPECT_TRUE(process->start()) << session_.getLastError();
        EXPECT_TRUE(process->close());
    }

private:
    std::optional<ScriptedServer> server_;
    std::optional<TcpProxy> line_;
    SSHSession session_;
};

TEST_F(BlockingMode, IsBackAfterASuccess)
{
    serve({AuthReply::accept()});
    EXPECT_EQ(attempt(), Result::Success);
    expectBlockingCallsToBlock();
}

TEST_F(BlockingMode, IsBackAfterADenial)
{
    serve({AuthReply::deny(), AuthReply::accept()});
    EXPECT_EQ(attempt(), Result::Denied);
    EXPECT_EQ(attempt(), Result::Success);
    expectBlockingCallsToBlock();
}

TEST_F(BlockingMode, IsBackAfterAPartialSuccess)
{
    serve({AuthReply::partial({AuthMethod::Password}), AuthReply::accept()});
    EXPECT_EQ(attempt(), Result::Partial);
    EXPECT_EQ(attempt(), Result::Success);
    expectBlockingCallsToBlock();
}

} // namespace

} // namespace TarnisTest
