// A connection that breaks anywhere between the first byte of the handshake and the last byte of a
// command's end.

#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"
#include "support/TcpProxy.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <set>
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

    enum class Reached
    {
        Connection,
        Authentication,
        Command,
        End
    };

    static TcpProxy::Direction direction() { return std::get<0>(GetParam()); }

    /// How many bytes travel when nothing is cut.
    std::uint64_t measureWholeRun()
    {
        EXPECT_EQ(run(), Reached::End);
        const std::uint64_t bytes = proxy_->forwardedBytes(direction());
        return bytes;
    }

    /// Where the messages end that travel when nothing is cut, and where the log-in does.
    struct Messages
    {
        std::set<std::uint64_t> ends;
        std::uint64_t loggedIn = 0;
    };

    Messages measureMessages()
    {
        // Messages that arrive together in one run may come apart in the next.
        constexpr int runs = 3;
        Messages messages;
        messages.loggedIn = std::numeric_limits<std::uint64_t>::max();
        for (int number = 0; number < runs; ++number) {
            // The goodbye of the run before must not count here.
            EXPECT_TRUE(waitUntil([this] { return proxy_->openConnectionCount() == 0; }));
            const std::size_t before = proxy_->pieceSizes(direction()).size();
            EXPECT_EQ(run(), Reached::End);
            messages.loggedIn = std::min(messages.loggedIn, loggedIn_);
            std::uint64_t end = 0;
            const auto sizes = proxy_->pieceSizes(direction());
            for (std::size_t piece = before; piece < sizes.size(); ++piece) {
                end += sizes[piece];
                messages.ends.insert(end);
            }
        }
        return messages;
    }

    void cutAfter(std::uint64_t bytes)
    {
        proxy_->cutAfterBytes(direction(), bytes, std::get<1>(GetParam()));
    }

    void repairLine() { proxy_->neverCut(); }

    /// A run on a line that is cut, and one on the same line repaired.
    Reached cutAndRepair(std::uint64_t bytes)
    {
        cutAfter(bytes);
        // A call that waits for its time limit instead of noticing takes 100 seconds.
        const auto start = std::chrono::steady_clock::now();
        const Reached reached = run();
        EXPECT_LT(std::chrono::steady_clock::now() - start, kGenerousLimit);

        repairLine();
        EXPECT_EQ(run(), Reached::End) << session().getLastError();
        return reached;
    }

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
        const std::uint64_t before = proxy_->forwardedBytes(direction());
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
        loggedIn_ = proxy_->forwardedBytes(direction()) - before;
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
    std::uint64_t loggedIn_ = 0;
};

TEST_P(CutConnection, IsNeverTakenForASuccessAndCanBeMadeAgain)
{
    const std::uint64_t whole = measureWholeRun();
    std::size_t brokenRuns = 0;
    for (unsigned point = 0; point < pointCount && !HasFailure(); ++point) {
        const std::uint64_t bytes = whole * point / pointCount;
        SCOPED_TRACE("cut after " + std::to_string(bytes) + " of " + std::to_string(whole));
        brokenRuns += cutAndRepair(bytes) == Reached::End ? 0U : 1U;
    }
    // The last bytes say goodbye; before them every cut must hurt.
    EXPECT_GE(brokenRuns, pointCount - 5);
}

TEST_P(CutConnection, WhereAMessageEndsIsNeverTakenForASuccessEither)
{
    const Messages messages = measureMessages();
    // The key exchange and the log-in alone take more.
    EXPECT_GE(messages.ends.size(), 8U);
    std::set<std::uint64_t> points;
    for (const std::uint64_t end : messages.ends) {
        points.insert({end - 1, end, end + 1});
    }
    for (const std::uint64_t bytes : points) {
        SCOPED_TRACE("cut after " + std::to_string(bytes));
        const Reached reached = cutAndRepair(bytes);
        EXPECT_TRUE(bytes >= messages.loggedIn || reached != Reached::End);
        if (HasFailure()) {
            return;
        }
    }
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
