// Remote commands over lines that are slow, fragmented, or cut.

#include "integration/process/ProcessTest.h"
#include "support/PseudoRandom.h"
#include "support/Sha256.h"

#include <vector>

namespace TarnisTest {

namespace {

using std::chrono::milliseconds;

class BadLineTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!requireServer(OpenSshServer::availability())) {
            return;
        }
        server_ = std::make_unique<OpenSshServer>();
        proxy_ = std::make_unique<TcpProxy>(server_->port());
    }

    TcpProxy& proxy() { return *proxy_; }

    std::unique_ptr<Tarnis::SSHSession> openSessionThroughProxy() const
    {
        return openSession(accessTo(*server_).through(*proxy_));
    }

    void makeSlow(milliseconds delay, std::size_t bytesPerSecond)
    {
        proxy().setDelay(TcpProxy::ToServer, delay);
        proxy().setDelay(TcpProxy::ToClient, delay);
        proxy().setThrottle(TcpProxy::ToClient, bytesPerSecond);
    }

    std::string file(const std::string& content) const
    {
        return directory_.write("content", content);
    }

private:
    TemporaryDirectory directory_;
    std::unique_ptr<OpenSshServer> server_;
    std::unique_ptr<TcpProxy> proxy_;
};

TEST_F(BadLineTest, ADribblingLineLosesNothing)
{
    const auto session = openSessionThroughProxy();
    proxy().setDribble(TcpProxy::ToServer, true);
    proxy().setDribble(TcpProxy::ToClient, true);
    const std::string input = pseudoRandomBytes(31, 3000);
    const auto result = session->execute("cat; echo err >&2; exit 5", input);
    EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
    EXPECT_EQ(sha256(result.output), sha256(input));
    EXPECT_EQ(result.errorOutput, "err\n");
    EXPECT_EQ(result.exitCode, 5);
}

TEST_F(BadLineTest, ASlowLineLosesNothing)
{
    const auto session = openSessionThroughProxy();
    makeSlow(milliseconds(100), 1'000'000);
    const std::string output = pseudoRandomBytes(32, 1'500'000);
    expectOutput(session->execute("cat " + file(output)), output);
}

TEST_F(BadLineTest, ASlowLineLosesNothingOfACommandThatLeavesABackgroundChild)
{
    const auto session = openSessionThroughProxy();
    makeSlow(milliseconds(100), 500'000);
    const std::string output = pseudoRandomBytes(33, 1'000'000);
    expectOutput(session->execute("sleep 300 & cat " + file(output)), output);
    expectOutput(session->execute("sleep 300 & echo short"), "short\n");
}

TEST_F(BadLineTest, ASlowLineLosesNothingThatABackgroundChildWritesWithoutAPause)
{
    const auto session = openSessionThroughProxy();
    makeSlow(milliseconds(100), 500'000);
    const std::string output = pseudoRandomBytes(34, 2'500'000);
    const auto result = session->execute("(cat " + file(output) + "; exec sleep 300) & exit 0");
    expectOutput(result, output);
}

TEST_F(BadLineTest, AThrottledLineLosesNothingOfACommandThatLeavesABackgroundChild)
{
    // So slow that the exit code is here long before the output that left the command earlier.
    const auto session = openSessionThroughProxy();
    makeSlow(milliseconds(0), 60'000);
    const std::string output = pseudoRandomBytes(35, 250'000);
    expectOutput(session->execute("sleep 300 & cat " + file(output)), output);
}

TEST_F(BadLineTest, AStalledLineEndsByTheTimeLimitAndGoesOnWhenItIsGoodAgain)
{
    const auto session = openSessionThroughProxy();
    proxy().stall();
    EXPECT_EQ(session->execute("echo never", {}, milliseconds(200)).outcome, Outcome::TimedOut);
    proxy().resume();
    expectOutput(session->execute("echo again", {}, kGenerousLimit), "again\n");
}

class CutLineTest : public BadLineTest, public ::testing::WithParamInterface<TcpProxy::Cut>
{
protected:
    static constexpr std::size_t outputSize = 200'000;

    static const std::string& output()
    {
        static const std::string bytes = pseudoRandomBytes(36, outputSize);
        return bytes;
    }

    /// Runs the command on a fresh connection. The line is cut once this many more bytes have come
    /// to the client.
    Tarnis::SSHExecuteResult executeAndCutAfter(const std::string& command, std::uint64_t bytes)
    {
        const auto before = proxy().forwardedBytes(TcpProxy::ToClient);
        const auto session = openSessionThroughProxy();
        const auto loggedIn = proxy().forwardedBytes(TcpProxy::ToClient) - before;
        proxy().cutAfterBytes(TcpProxy::ToClient, loggedIn + bytes, GetParam());
        auto result = session->execute(command, {}, kGenerousLimit);
        proxy().neverCut();
        return result;
    }

    /// How many bytes come to the client when the line is not cut.
    std::uint64_t bytesOfARun(const std::string& command)
    {
        const auto session = openSessionThroughProxy();
        const auto before = proxy().forwardedBytes(TcpProxy::ToClient);
        expectOutput(session->execute(command), output());
        return proxy().forwardedBytes(TcpProxy::ToClient) - before;
    }

    static std::vector<std::uint64_t> cutPoints(std::uint64_t total)
    {
        std::vector<std::uint64_t> points{0, 1, 40, 100, 500, 5000, total / 2};
        for (std::uint64_t left = 600; left > 16; left = left * 4 / 5) {
            points.push_back(total - left);
        }
        return points;
    }

    static void expectHonest(const Tarnis::SSHExecuteResult& result)
    {
        EXPECT_NE(result.outcome, Outcome::TimedOut) << describe(result);
        EXPECT_EQ(result.output, output().substr(0, result.output.size()))
            << "what is here must be right";
        if (result.outcome == Outcome::Completed) {
            EXPECT_EQ(result.output.size(), output().size()) << "completed, but bytes are missing";
            EXPECT_EQ(result.exitCode, 0);
        }
        if (result.outcome == Outcome::NotStarted) {
            EXPECT_EQ(result.output, "") << "not started, but with output";
        }
    }
};

TEST_P(CutLineTest, IsNeverTakenForACompleteCommand)
{
    const std::string command = "cat " + file(output());
    const auto total = bytesOfARun(command);
    bool wasLost = false;
    for (const std::uint64_t bytes : cutPoints(total)) {
        SCOPED_TRACE("cut after " + std::to_string(bytes) + " of " + std::to_string(total));
        const auto result = executeAndCutAfter(command, bytes);
        expectHonest(result);
        wasLost = wasLost || result.outcome == Outcome::ConnectionLost;
    }
    EXPECT_TRUE(wasLost) << "no cut had any effect";
}

TEST_P(CutLineTest, IsToldByAPlainReadAsWell)
{
    const auto session = openSessionThroughProxy();
    const auto process = startProcess(*session, "echo begin; cat");
    EXPECT_EQ(readExactly(*process, 6, standardOutput), "begin\n");
    proxy().cut(GetParam());
    Status end = Status::EndOfStream;
    EXPECT_EQ(readToEnd(*process, standardOutput, &end), "");
    EXPECT_EQ(end, Status::Error);
    EXPECT_FALSE(session->isConnected());
}

INSTANTIATE_TEST_SUITE_P(Line, CutLineTest,
                         ::testing::Values(TcpProxy::Cut::Finish, TcpProxy::Cut::Reset),
                         [](const auto& how) {
                             return how.param == TcpProxy::Cut::Finish ? "Finished" : "Reset";
                         });

} // namespace

} // namespace TarnisTest
