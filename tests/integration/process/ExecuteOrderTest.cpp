// What execute makes of servers that tell the end of a command in one order or another, or not.

#include "integration/process/ProcessTest.h"
#include "support/PseudoRandom.h"
#include "support/Sha256.h"

#include <string>

namespace TarnisTest {

namespace {

using std::chrono::milliseconds;

const std::string& bulk()
{
    static const std::string bytes = pseudoRandomBytes(21, 300'000);
    return bytes;
}

/// The last acts of a server, one letter each: d output, e error output, s exit status 7, k exit
/// signal KILL, E end of file, C close.
void perform(ScriptedChannel& channel, const std::string& acts)
{
    for (const char act : acts) {
        switch (act) {
        case 'd':
            channel.writeOutput(bulk());
            break;
        case 'e':
            channel.writeErrorOutput(bulk());
            break;
        case 's':
            channel.sendExitStatus(7);
            break;
        case 'k':
            channel.sendExitSignal("KILL");
            break;
        case 'E':
            channel.sendEof();
            break;
        case 'C':
            channel.close();
            break;
        default:
            ADD_FAILURE() << "no such act: " << act;
        }
    }
}

class ExecuteOrderTest : public ::testing::TestWithParam<const char*>
{
protected:
    static bool does(char act) { return std::string(GetParam()).find(act) != std::string::npos; }

    static std::string expected(char act)
    {
        std::string text;
        for (const char done : std::string(GetParam())) {
            text += done == act ? bulk() : std::string();
        }
        return text;
    }

    static void expectEverything(const Tarnis::SSHExecuteResult& result)
    {
        EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
        EXPECT_EQ(sha256(result.output), sha256(expected('d'))) << describe(result);
        EXPECT_EQ(sha256(result.errorOutput), sha256(expected('e'))) << describe(result);
        EXPECT_EQ(result.exitSignal, does('k') ? "KILL" : "");
        EXPECT_EQ(result.exitCode, does('s') ? std::optional<int>(7) : std::nullopt);
    }
};

TEST_P(ExecuteOrderTest, GivesEverythingWhateverComesFirst)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.readInputToEnd();
        perform(channel, GetParam());
        channel.waitForClose();
    });
    for (int round = 0; round < 3; ++round) {
        expectEverything(scripted.session().execute("x", "input", kGenerousLimit));
    }
}

TEST_P(ExecuteOrderTest, GivesEverythingThoughTheInputWasNeverRead)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.pauseInput();
        perform(channel, GetParam());
        channel.waitForClose();
    });
    const std::string input(8 * kMebibyte, 'i');
    expectEverything(scripted.session().execute("x", input, kGenerousLimit));
}

INSTANTIATE_TEST_SUITE_P(Acts, ExecuteOrderTest,
                         ::testing::Values("desEC", "dsEC", "sdEC", "sdeEC", "dEsC", "EsC", "sEC",
                                           "dsdEC", "esdEC", "dkEC", "kdEC", "dEkC", "dsC", "sdC",
                                           "dEC", "C", "dC",
                                           // The channel stays open on the server's side.
                                           "dsE", "sdE", "dEs", "ds", "sd", "dsd", "dk", "kd", "s"),
                         [](const auto& acts) { return std::string(acts.param); });

TEST(ExecuteOnAScriptedServer, EndsByItsTimeLimitWhenTheServerTellsNothingAfterTheEndOfFile)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.writeOutput("all");
        channel.sendEof();
        channel.waitForClose();
    });
    const auto result = scripted.session().execute("x", {}, milliseconds(500));
    EXPECT_EQ(result.outcome, Outcome::TimedOut) << describe(result);
    EXPECT_TRUE(result.timedOut());
    EXPECT_EQ(result.output, "all");
    EXPECT_EQ(result.exitCode, std::nullopt);
}

TEST(ExecuteOnAScriptedServer, SendsTheCommandLineTheInputAndTheEndOfFile)
{
    std::string received;
    ScriptedSession scripted([&](ScriptedChannel& channel) {
        received = channel.readInputToEnd();
        channel.finish(0);
    });
    const std::string input("in\0put", 6);
    const auto result = scripted.session().execute("command", input);
    expectOutput(result, "");
    EXPECT_EQ(received, input);
    EXPECT_EQ(scripted.events().ofKind(Event::ExecRequest).front().text, "command\n");
}

ScriptedPolicy answering(std::function<Answer(const ServerEvent&)> ScriptedPolicy::*hook,
                         Answer first)
{
    ScriptedPolicy policy;
    policy.*hook = [first, isFirst = std::make_shared<bool>(true)](const ServerEvent&) {
        return std::exchange(*isFirst, false) ? first : Answer::Accept;
    };
    policy.run = [](ScriptedChannel& channel) {
        channel.writeOutput("ran");
        channel.finish(0);
    };
    return policy;
}

TEST(ExecuteOnAScriptedServer, DoesNotStartWhenTheChannelIsRefused)
{
    ScriptedSession scripted(answering(&ScriptedPolicy::openChannel, Answer::Refuse));
    EXPECT_EQ(scripted.session().execute("x").outcome, Outcome::NotStarted);
    EXPECT_NE(scripted.session().getLastError(), "");
    expectOutput(scripted.session().execute("x"), "ran");
}

TEST(ExecuteOnAScriptedServer, DoesNotStartWhenTheCommandIsRefused)
{
    ScriptedSession scripted(answering(&ScriptedPolicy::channelRequest, Answer::Refuse));
    EXPECT_EQ(scripted.session().execute("x").outcome, Outcome::NotStarted);
    EXPECT_NE(scripted.session().getLastError(), "");
    EXPECT_TRUE(scripted.events().waitFor(Event::Close));
    expectOutput(scripted.session().execute("x"), "ran");
}

TEST(ExecuteOnAScriptedServer, TimesOutWhenTheServerNeverAnswersToTheChannel)
{
    ScriptedSession scripted(answering(&ScriptedPolicy::openChannel, Answer::Silence));
    const auto result = scripted.session().execute("x", "input", milliseconds(100));
    EXPECT_EQ(result.outcome, Outcome::TimedOut);
    EXPECT_EQ(result.inputConsumed, 0U);
    EXPECT_TRUE(scripted.session().isAuthenticated());
    expectOutput(scripted.session().execute("x", {}, kGenerousLimit), "ran");
}

TEST(ExecuteOnAScriptedServer, TimesOutWhenTheServerNeverAnswersToTheCommand)
{
    ScriptedSession scripted(answering(&ScriptedPolicy::channelRequest, Answer::Silence));
    const auto result = scripted.session().execute("x", "input", milliseconds(100));
    EXPECT_EQ(result.outcome, Outcome::TimedOut);
    EXPECT_TRUE(scripted.events().waitFor(Event::Close));
    expectOutput(scripted.session().execute("x", {}, kGenerousLimit), "ran");
}

TEST(ExecuteOnAScriptedServer, LosesTheConnectionInsteadOfTheAnswerToTheChannel)
{
    ScriptedSession scripted(answering(&ScriptedPolicy::openChannel, Answer::Drop));
    EXPECT_EQ(scripted.session().execute("x").outcome, Outcome::ConnectionLost);
    EXPECT_FALSE(scripted.session().isConnected());
}

TEST(ExecuteOnAScriptedServer, LosesTheConnectionInsteadOfTheAnswerToTheCommand)
{
    ScriptedSession scripted(answering(&ScriptedPolicy::channelRequest, Answer::Drop));
    EXPECT_EQ(scripted.session().execute("x").outcome, Outcome::ConnectionLost);
    EXPECT_FALSE(scripted.session().isConnected());
}

TEST(ExecuteOnAScriptedServer, AsksForKillWhenTheTimeIsUp)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.writeOutput("partial");
        channel.waitForClose();
    });
    const auto result = scripted.session().execute("x", {}, milliseconds(500));
    EXPECT_EQ(result.outcome, Outcome::TimedOut);
    EXPECT_EQ(result.output, "partial");
    EXPECT_TRUE(scripted.events().waitFor(Event::Close));
    ASSERT_EQ(scripted.events().count(Event::Signal), 1U);
    EXPECT_EQ(scripted.events().ofKind(Event::Signal).front().text, "KILL");
}

TEST(ExecuteOnAScriptedServer, GivesUpAtTheFirstWaitWithoutAnyTime)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    for (const milliseconds timeout : {milliseconds(0), milliseconds(-1), milliseconds::min()}) {
        EXPECT_TRUE(returnsWithinASecond([&] {
            EXPECT_EQ(scripted.session().execute("x", {}, timeout).outcome, Outcome::TimedOut);
        }));
    }
}

TEST(ExecuteOnAScriptedServer, HasAllOutputWhenTheServerHangsUpAfterTheExitStatus)
{
    for (int round = 0; round < 20; ++round) {
        ScriptedSession scripted([](ScriptedChannel& channel) {
            channel.readInputToEnd();
            channel.writeOutput(bulk());
            channel.sendExitStatus(7);
            channel.dropConnection();
        });
        const auto result = scripted.session().execute("x", {}, kGenerousLimit);
        EXPECT_EQ(sha256(result.output), sha256(bulk())) << describe(result);
        EXPECT_TRUE(result.outcome == Outcome::Completed ||
                    result.outcome == Outcome::ConnectionLost)
            << describe(result);
        if (result.outcome == Outcome::Completed) {
            EXPECT_EQ(result.exitCode, 7);
        }
    }
}

TEST(ExecuteOnAScriptedServer, NeverCallsOutputCompleteThatBreaksOff)
{
    for (int round = 0; round < 20; ++round) {
        ScriptedSession scripted([](ScriptedChannel& channel) {
            channel.readInputToEnd();
            channel.writeOutput(bulk());
            channel.dropConnection();
        });
        const auto result = scripted.session().execute("x", {}, kGenerousLimit);
        EXPECT_EQ(result.outcome, Outcome::ConnectionLost) << describe(result);
        EXPECT_EQ(sha256(result.output), sha256(bulk())) << describe(result);
        EXPECT_EQ(result.exitCode, std::nullopt);
    }
}

} // namespace

} // namespace TarnisTest
