// A connection that breaks anywhere between the first byte of the handshake and the last byte of a
// command's end.

#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"
#include "support/TcpProxy.h"

#include <gtest/gtest.h>

#include <tuple>

namespace TarnisTest {

using namespace Tarnis;

namespace {

constexpr const char* kCommand = "seq 1 4000; echo problem >&2; exit 7";

std::string numbers(int last)
{
    std::string text;
    for (int number = 1; number <= last; ++number) {
        text += std::to_string(number) + "\n";
    }
    return text;
}

class CutConnection
    : public OpenSshTest,
      public ::testing::WithParamInterface<std::tuple<TcpProxy::Direction, TcpProxy::Cut>>
{
protected:
    static constexpr unsigned pointCount = 60;

    void SetUp() override
    {
        OpenSshTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        proxy_.emplace(server().port());
        address(session(), proxy_->port(), server().user());
    }

    static TcpProxy::Direction direction() { return std::get<0>(GetParam()); }

    /// How many bytes travel when nothing is cut.
    std::uint64_t measureWholeRun()
    {
        EXPECT_EQ(run(), Reached::End);
        const std::uint64_t bytes = proxy_->forwardedBytes(direction());
        return bytes;
    }

    void cutAfter(std::uint64_t bytes)
    {
        proxy_->cutAfterBytes(direction(), bytes, std::get<1>(GetParam()));
    }

    void repairLine() { proxy_->neverCut(); }

    enum class Reached
    {
        Connection,
        Authentication,
        Command,
        End
    };

    /// One session from connect to disconnect, checked for everything that would be a lie.
    Reached run()
    {
        const Reached reached = runUntilItBreaks();
        session().disconnect();
        EXPECT_EQ(session().getState(), RemoteSessionState::Disconnected);
        EXPECT_TRUE(socketsConnectedTo(proxy_->port()).empty());
        return reached;
    }

private:
    Reached runUntilItBreaks()
    {
        if (!session().connect()) {
            EXPECT_EQ(session().getState(), RemoteSessionState::Disconnected);
            return Reached::Connection;
        }
        if (session().hostAuthenticate(HostAuthenticatorNone()) == nullptr) {
            return Reached::Connection;
        }
        const auto result = offerKey(session(), server().clientKey());
        if (result != AuthenticateUserResult::Success) {
            EXPECT_NE(result, AuthenticateUserResult::Partial);
            return Reached::Authentication;
        }
        return runCommand();
    }

    Reached runCommand()
    {
        const SSHExecuteResult result = session().execute(kCommand);
        const std::string expected = numbers(4000);
        EXPECT_EQ(expected.compare(0, result.output.size(), result.output), 0);
        EXPECT_FALSE(result.timedOut());
        if (result.outcome != SSHExecuteResult::Outcome::Completed) {
            return Reached::Command;
        }
        EXPECT_EQ(result.output, expected);
        EXPECT_EQ(result.errorOutput, "problem\n");
        EXPECT_EQ(result.exitCode, 7);
        return Reached::End;
    }

    std::optional<TcpProxy> proxy_;
};

TEST_P(CutConnection, IsNeverTakenForASuccessAndCanBeMadeAgain)
{
    const std::uint64_t whole = measureWholeRun();
    std::size_t brokenRuns = 0;
    for (unsigned point = 0; point < pointCount && !HasFailure(); ++point) {
        const std::uint64_t bytes = whole * point / pointCount;
        SCOPED_TRACE("cut after " + std::to_string(bytes) + " of " + std::to_string(whole));
        cutAfter(bytes);
        // A call that waits for its time limit instead of noticing takes 100 seconds.
        const auto start = std::chrono::steady_clock::now();
        brokenRuns += run() == Reached::End ? 0U : 1U;
        EXPECT_LT(std::chrono::steady_clock::now() - start, kGenerousLimit);

        repairLine();
        EXPECT_EQ(run(), Reached::End) << session().getLastError();
    }
    // The last bytes say goodbye; before them every cut must hurt.
    EXPECT_GE(brokenRuns, pointCount - 5);
}

std::string cutName(const ::testing::TestParamInfo<CutConnection::ParamType>& info)
{
    const bool toServer = std::get<0>(info.param) == TcpProxy::ToServer;
    const bool reset = std::get<1>(info.param) == TcpProxy::Cut::Reset;
    return std::string(toServer ? "ToServer" : "ToClient") + (reset ? "ByReset" : "ByEnd");
}

INSTANTIATE_TEST_SUITE_P(
    Sweep, CutConnection,
    ::testing::Combine(::testing::Values(TcpProxy::ToServer, TcpProxy::ToClient),
                       ::testing::Values(TcpProxy::Cut::Finish, TcpProxy::Cut::Reset)),
    cutName);

} // namespace

} // namespace TarnisTest
