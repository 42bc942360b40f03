// Commands that are given up: by their time limit, by interrupt(), or by a disconnect.

#include "integration/process/ProcessTest.h"

#include <filesystem>
#include <future>

namespace TarnisTest {

namespace {

using std::chrono::milliseconds;

class ExecuteTimeoutTest : public UnprivilegedSessionTest
{};

TEST_F(ExecuteTimeoutTest, KeepsTheOutputSoFarAndKillsTheCommandOnTheServer)
{
    // Time for a slow machine: the command must have begun to talk.
    const auto result =
        session().execute("echo oops >&2; echo $$; exec sleep 300", {}, milliseconds(3000));
    EXPECT_EQ(result.outcome, Outcome::TimedOut) << describe(result);
    EXPECT_EQ(result.errorOutput, "oops\n");
    EXPECT_EQ(result.exitCode, std::nullopt);
    ASSERT_GT(result.output.size(), 1U);
    const std::string pid = result.output.substr(0, result.output.size() - 1);
    EXPECT_TRUE(waitUntil([&] { return hasGone(pid); })) << pid;
    expectOutput(session().execute("echo next"), "next\n");
}

TEST_F(ExecuteTimeoutTest, KillsACommandThatIgnoresTheEndOfItsInputAndTalksOn)
{
    const auto result =
        session().execute("echo $$; while :; do echo more; done", {}, milliseconds(1500));
    EXPECT_EQ(result.outcome, Outcome::TimedOut) << describe(result);
    const std::string pid = result.output.substr(0, result.output.find('\n'));
    EXPECT_TRUE(waitUntil([&] { return hasGone(pid); })) << pid;
    expectOutput(session().execute("echo next"), "next\n");
}

TEST_F(ExecuteTimeoutTest, TellsTheExitCodeOfACommandWhoseBackgroundChildTookTheTime)
{
    const auto result = session().execute("while :; do echo more; sleep 0.1; done & exit 7", {},
                                          milliseconds(2000));
    EXPECT_EQ(result.outcome, Outcome::TimedOut) << describe(result);
    EXPECT_EQ(result.exitCode, 7);
}

TEST_F(ExecuteTimeoutTest, EndsACommandThatDoesNotReadItsInput)
{
    const std::string input(16 * kMebibyte, 'x');
    const auto result = session().execute("exec sleep 300", input, milliseconds(500));
    EXPECT_EQ(result.outcome, Outcome::TimedOut) << describe(result);
    EXPECT_LT(result.inputConsumed, input.size());
    expectOutput(session().execute("wc -c", "12345"), "5\n");
}

TEST_F(ExecuteTimeoutTest, LeavesRoomOnTheServerForTheNextCommand)
{
    // The server allows ten commands at the same time.
    for (int number = 0; number < 50; ++number) {
        const auto result = session().execute("exec sleep 300", {}, milliseconds(50));
        ASSERT_EQ(result.outcome, Outcome::TimedOut) << number << ": " << session().getLastError();
    }
    expectOutput(session().execute("echo next"), "next\n");
}

TEST_F(ExecuteTimeoutTest, LeavesTheSessionUsableTimeAfterTime)
{
    for (int number = 0; number < 20; ++number) {
        EXPECT_EQ(session().execute("exec sleep 300", {}, milliseconds(20)).outcome,
                  Outcome::TimedOut);
        for (int good = 0; good < 10; ++good) {
            expectOutput(session().execute("echo " + std::to_string(good)),
                         std::to_string(good) + "\n");
        }
    }
}

class StoppedServerTest : public OpenSshSessionTest
{};

TEST_F(StoppedServerTest, LeavesNoCommandBehindThatTimedOutWhileTheServerWasStopped)
{
    for (int number = 0; number < 25; ++number) {
        server().suspendAll();
        const auto result = session().execute("true", {}, milliseconds(20));
        server().resumeAll();
        ASSERT_EQ(result.outcome, Outcome::TimedOut) << number << ": " << session().getLastError();
        // The server's answers to what was given up come now.
        expectOutput(session().execute("echo next", {}, kGenerousLimit), "next\n");
    }
}

TEST_F(StoppedServerTest, LeavesNoRoomTakenByChannelsThatTimedOutBeforeTheyWereOpen)
{
    server().suspendAll();
    for (int number = 0; number < 25; ++number) {
        ASSERT_EQ(session().execute("true", {}, milliseconds(1)).outcome, Outcome::TimedOut);
    }
    server().resumeAll();
    // Ten at the same time is the limit, but those given up end sooner or later.
    EXPECT_TRUE(waitUntil([&] {
        return session().execute("true", {}, kGenerousLimit).succeeded();
    })) << session().getLastError();
}

class GivenUpTest : public OpenSshSessionTest
{
protected:
    /// An execute in a thread of its own, once its command has begun to talk.
    std::future<Tarnis::SSHExecuteResult> executeInBackground()
    {
        const std::string path = directory_.file("running");
        auto result = std::async(std::launch::async, [this, path] {
            return session().execute("touch " + path + "; exec sleep 300");
        });
        EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(path); }));
        return result;
    }

    static void expectLostPromptly(std::future<Tarnis::SSHExecuteResult>& running)
    {
        ASSERT_EQ(running.wait_for(kPromptly), std::future_status::ready);
        EXPECT_EQ(running.get().outcome, Outcome::ConnectionLost);
    }

private:
    TemporaryDirectory directory_;
};

TEST_F(GivenUpTest, ExecuteLosesTheConnectionWhenAnotherThreadDisconnects)
{
    auto running = executeInBackground();
    EXPECT_TRUE(returnsWithinASecond([&] { EXPECT_TRUE(session().disconnect()); }));
    expectLostPromptly(running);
}

TEST_F(GivenUpTest, ExecuteLosesTheConnectionWhenAnotherThreadDisconnectsSilently)
{
    auto running = executeInBackground();
    EXPECT_TRUE(returnsWithinASecond([&] { session().silentDisconnect(); }));
    expectLostPromptly(running);
}

TEST_F(GivenUpTest, ExecuteLosesTheConnectionWhenItIsInterrupted)
{
    auto running = executeInBackground();
    session().interrupt();
    expectLostPromptly(running);
    EXPECT_EQ(session().getState(), Tarnis::RemoteSessionState::Disconnected);
    logIn(session(), accessTo(server()));
    expectOutput(session().execute("echo again"), "again\n");
}

TEST_F(GivenUpTest, ExecuteLosesTheConnectionWhenTheServerIsKilled)
{
    auto running = executeInBackground();
    server().killConnections();
    expectLostPromptly(running);
    EXPECT_FALSE(session().isConnected());
}

TEST_F(GivenUpTest, InterruptFreesAnExecuteThatTheServerNeverAnswers)
{
    server().suspendAll();
    auto running =
        std::async(std::launch::async, [this] { return session().execute("echo never"); });
    EXPECT_EQ(running.wait_for(milliseconds(100)), std::future_status::timeout);
    session().interrupt();
    expectLostPromptly(running);
}

} // namespace

} // namespace TarnisTest
