#include "integration/session/SessionSteps.h"
#include "support/TcpProxy.h"

#include <gtest/gtest.h>

#include <future>
#include <optional>

namespace TarnisTest {

using namespace Tarnis;
using std::chrono::milliseconds;

namespace {

class BadLine : public OpenSshTest
{
protected:
    void SetUp() override
    {
        OpenSshTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        line_.emplace(server().port());
        address(session(), line().port(), server().user());
    }

    TcpProxy& line() { return *line_; }

private:
    std::optional<TcpProxy> line_;
};

TEST_F(BadLine, CarriesASessionOneByteAtATime)
{
    line().setDribble(TcpProxy::ToServer, true);
    line().setDribble(TcpProxy::ToClient, true);
    EXPECT_TRUE(logIn()) << session().getLastError();
    EXPECT_TRUE(runsCommands(session()));
    EXPECT_TRUE(session().disconnect());
}

TEST_F(BadLine, CarriesASessionWithADelay)
{
    line().setDelay(TcpProxy::ToServer, milliseconds(40));
    line().setDelay(TcpProxy::ToClient, milliseconds(40));
    EXPECT_TRUE(logIn()) << session().getLastError();
    EXPECT_TRUE(runsCommands(session()));
}

TEST_F(BadLine, CarriesASessionThatIsThrottled)
{
    line().setThrottle(TcpProxy::ToServer, 20'000);
    line().setThrottle(TcpProxy::ToClient, 20'000);
    EXPECT_TRUE(logIn()) << session().getLastError();
    EXPECT_TRUE(runsCommands(session()));
}

TEST_F(BadLine, MayStallInTheMiddleOfAConnect)
{
    line().stall(TcpProxy::ToClient);
    auto loggingIn = std::async(std::launch::async, [this] { return logIn(); });
    ASSERT_TRUE(waitUntil([this] { return line().openConnectionCount() == 1; }));
    EXPECT_EQ(loggingIn.wait_for(milliseconds(200)), std::future_status::timeout);
    line().resume();
    EXPECT_TRUE(loggingIn.get()) << session().getLastError();
    EXPECT_TRUE(runsCommands(session()));
}

TEST_F(BadLine, MayStallInTheMiddleOfAnAuthentication)
{
    ASSERT_TRUE(connectTrusting(session()));
    line().stall(TcpProxy::ToClient);
    auto answer = std::async(std::launch::async,
                             [this] { return offerKey(session(), server().clientKey()); });
    EXPECT_EQ(answer.wait_for(milliseconds(200)), std::future_status::timeout);
    line().resume();
    EXPECT_EQ(answer.get(), AuthenticateUserResult::Success) << session().getLastError();
}

} // namespace

} // namespace TarnisTest
