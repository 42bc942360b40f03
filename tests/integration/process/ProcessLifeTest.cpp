// The life of one remote command, from its command line to its end.

#include "integration/process/ProcessTest.h"

#include <future>
#include <utility>

namespace TarnisTest {

namespace {

using std::chrono::milliseconds;

std::string execRequest(const ScriptedSession& scripted, std::size_t index)
{
    return scripted.events().ofKind(Event::ExecRequest).at(index).text;
}

/// A policy that refuses the first request of one kind and accepts all others.
ScriptedPolicy refusingTheFirst(std::function<Answer(const ServerEvent&)> ScriptedPolicy::*hook,
                                Answer answer = Answer::Refuse)
{
    ScriptedPolicy policy;
    policy.*hook = [answer, first = std::make_shared<bool>(true)](const ServerEvent&) {
        return std::exchange(*first, false) ? answer : Answer::Accept;
    };
    policy.run = [](ScriptedChannel& channel) {
        channel.writeOutput("ran " + channel.command());
        channel.finish(0);
    };
    return policy;
}

TEST(ProcessOnAScriptedServer, SendsTheCommandLineAndOneLineFeed)
{
    ScriptedSession scripted{ScriptedPolicy()};
    for (const std::string line : {"ls", "ls\n", ""}) {
        const auto process = startProcess(scripted.session(), line);
        EXPECT_EQ(scripted.events().ofKind(Event::ExecRequest).back().text, line + "\n");
    }
    EXPECT_EQ(execRequest(scripted, 0).size(), 3U);
}

TEST(ProcessOnAScriptedServer, SendsTheSignalNamesWithoutAnyPrefix)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_TRUE(process->kill());
    EXPECT_TRUE(process->terminate());
    EXPECT_TRUE(process->sendSignal("USR1"));
    ASSERT_TRUE(scripted.events().waitFor(Event::Signal, 3))
        << ::testing::PrintToString(scripted.events().all());
    const auto signals = scripted.events().ofKind(Event::Signal);
    EXPECT_EQ(signals[0].text, "KILL");
    EXPECT_EQ(signals[1].text, "TERM");
    EXPECT_EQ(signals[2].text, "USR1");
}

TEST(ProcessOnAScriptedServer, RefusesASignalNameThatHoldsANulByte)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_FALSE(process->sendSignal(std::string("KI\0LL", 5)));
    EXPECT_TRUE(process->terminate());
    ASSERT_TRUE(scripted.events().waitFor(Event::Signal));
    EXPECT_EQ(scripted.events().ofKind(Event::Signal).front().text, "TERM");
}

TEST(ProcessOnAScriptedServer, SetCommandLineIsFalseThoughItReplacesTheLine)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    const auto process = scripted.session().createProcess("first");
    EXPECT_FALSE(process->setCommandLine("second"));
    EXPECT_EQ(process->getCommandLine(), "second");
    ASSERT_TRUE(process->start("third"));
    EXPECT_EQ(process->getCommandLine(), "third");
    EXPECT_EQ(execRequest(scripted, 0), "third\n");

    EXPECT_FALSE(process->setCommandLine("fourth"));
    EXPECT_EQ(process->getCommandLine(), "third") << "it runs";
}

TEST(ProcessOnAScriptedServer, KeepsItsCommandLineOnceItIsFinished)
{
    ScriptedSession scripted{ScriptedPolicy()};
    const auto process = startProcess(scripted.session(), "first");
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_FALSE(process->setCommandLine("second"));
    EXPECT_EQ(process->getCommandLine(), "first");
}

TEST(ProcessOnAScriptedServer, DoesNotStartWhileItRunsNorOnceItIsFinished)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.readInputToEnd();
        channel.finish(0);
    });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_FALSE(process->start());
    EXPECT_EQ(process->getProcessState(), State::Running);
    EXPECT_TRUE(process->sendEOF());
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_FALSE(process->start());
    EXPECT_FALSE(process->start("y"));
    EXPECT_EQ(process->getProcessState(), State::Finished);
    EXPECT_EQ(scripted.events().count(Event::ChannelOpen), 1U);
    EXPECT_EQ(scripted.events().count(Event::ExecRequest), 1U);
}

TEST(ProcessOnAScriptedServer, StartsAgainAfterItsChannelWasRefused)
{
    ScriptedSession scripted(refusingTheFirst(&ScriptedPolicy::openChannel));
    const auto process = scripted.session().createProcess("x");
    EXPECT_FALSE(process->start());
    EXPECT_EQ(process->getProcessState(), State::Failed);
    EXPECT_NE(scripted.session().getLastError(), "");
    EXPECT_EQ(scripted.events().count(Event::ExecRequest), 0U);

    ASSERT_TRUE(process->start()) << scripted.session().getLastError();
    EXPECT_EQ(readToEnd(*process, standardOutput), "ran x\n");
    EXPECT_EQ(scripted.events().count(Event::ChannelOpen), 2U);
    EXPECT_EQ(scripted.events().count(Event::ExecRequest), 1U);
}

TEST(ProcessOnAScriptedServer, StartsAgainAfterItsCommandWasRefused)
{
    ScriptedSession scripted(refusingTheFirst(&ScriptedPolicy::channelRequest));
    const auto process = scripted.session().createProcess("x");
    EXPECT_FALSE(process->start());
    EXPECT_EQ(process->getProcessState(), State::Failed);
    EXPECT_NE(scripted.session().getLastError(), "");

    ASSERT_TRUE(process->start("y")) << scripted.session().getLastError();
    EXPECT_EQ(readToEnd(*process, standardOutput), "ran y\n");
    EXPECT_EQ(scripted.events().count(Event::ExecRequest), 2U);
}

TEST(ProcessOnAScriptedServer, FailsToStartOnceTheConnectionIsLost)
{
    ScriptedSession scripted(refusingTheFirst(&ScriptedPolicy::openChannel, Answer::Drop));
    const auto process = scripted.session().createProcess("x");
    EXPECT_FALSE(process->start());
    EXPECT_EQ(process->getProcessState(), State::Failed);
    EXPECT_FALSE(process->start());
    EXPECT_EQ(process->getProcessState(), State::Failed);
}

TEST(ProcessOnAScriptedServer, OpenRunsAFinishedCommandOnceMore)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.writeOutput("run " + std::to_string(channel.number()));
        channel.finish(channel.number());
    });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_EQ(readToEnd(*process, standardOutput), "run 1");
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitCode(), 1);

    ASSERT_TRUE(process->open()) << scripted.session().getLastError();
    EXPECT_EQ(readToEnd(*process, standardOutput), "run 2");
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitCode(), 2);
    EXPECT_EQ(process->getProcessState(), State::Finished);
}

TEST(ProcessOnAScriptedServer, OpenRunsAFinishedCommandOnceMoreThoughItsChannelIsStillOpen)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.writeOutput("run " + std::to_string(channel.number()));
        channel.sendExitStatus(channel.number());
        channel.waitForClose();
    });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_EQ(readExactly(*process, 5, standardOutput), "run 1");
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getProcessState(), State::Finished);

    ASSERT_TRUE(process->open()) << scripted.session().getLastError();
    EXPECT_EQ(readExactly(*process, 5, standardOutput), "run 2");
    EXPECT_TRUE(waitUntil([&] { return process->getExitCode() == 2; }));
}

TEST(ProcessOnAScriptedServer, ReadsAsStartingWhileTheServerIsSilentAndAsFailedOnceInterrupted)
{
    ScriptedSession scripted(refusingTheFirst(&ScriptedPolicy::openChannel, Answer::Silence));
    const auto process = scripted.session().createProcess("x");
    EXPECT_EQ(process->getProcessState(), State::NotStarted);
    auto started = std::async(std::launch::async, [&] { return process->start(); });
    EXPECT_TRUE(waitUntil([&] { return process->getProcessState() == State::Starting; }));
    EXPECT_TRUE(scripted.events().waitFor(Event::ChannelOpen));
    EXPECT_EQ(process->getProcessState(), State::Starting);

    EXPECT_TRUE(returnsWithinASecond([&] {
        scripted.session().interrupt();
        EXPECT_FALSE(started.get());
    }));
    EXPECT_EQ(process->getProcessState(), State::Failed);
}

TEST(ProcessOnAScriptedServer, RunsUntilARefreshNoticesItsEnd)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.readInputToEnd();
        channel.finish(3);
    });
    const auto process = scripted.session().createProcess("x");
    EXPECT_EQ(process->getProcessState(), State::NotStarted);
    EXPECT_FALSE(process->isRunning());
    EXPECT_FALSE(process->isFinished());
    ASSERT_TRUE(process->start());
    EXPECT_EQ(process->getProcessState(), State::Running);
    EXPECT_TRUE(process->isRunning());
    EXPECT_FALSE(process->isFinished());
    EXPECT_TRUE(process->sendEOF());
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_TRUE(process->isFinished());
    EXPECT_FALSE(process->isRunning());
    EXPECT_EQ(process->getProcessState(), State::Finished);
    EXPECT_EQ(process->getExitCode(), 3);
}

TEST(ProcessOnAScriptedServer, HasAnyExitCodeThatItsServerReports)
{
    for (const int status : {-1, -2, -1073741819}) {
        ScriptedSession scripted([status](ScriptedChannel& channel) {
            channel.sendExitStatus(status);
            channel.waitForClose();
        });
        const auto process = startProcess(scripted.session(), "x");
        EXPECT_TRUE(process->waitForFinished(kGenerousLimit));
        EXPECT_EQ(process->getExitCode(), status);
        EXPECT_EQ(process->getExitSignal(), std::nullopt);
        EXPECT_TRUE(process->isFinished());
        EXPECT_TRUE(process->close());
        EXPECT_EQ(process->getExitCode(), status);
    }
}

TEST(ProcessOnAScriptedServer, TellsTheSignalThatEndedItsCommandAndForgetsItAtTheNextStart)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        if (channel.number() > 1) {
            channel.waitForClose();
            return;
        }
        channel.sendExitSignal("SEGV", true, "of no use");
        channel.sendEof();
        channel.close();
    });
    const auto process = startProcess(scripted.session(), "x");
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitSignal(), "SEGV");
    EXPECT_EQ(process->getExitCode(), -1);
    ASSERT_TRUE(process->open());
    EXPECT_EQ(process->getExitSignal(), std::nullopt);
    EXPECT_EQ(process->getExitCode(), std::nullopt);
}

TEST(ProcessOnAScriptedServer, HasEndedWhenItsChannelIsClosedLongAfterTheSignal)
{
    std::promise<void> signalSeen;
    const auto seen = signalSeen.get_future().share();
    ScriptedSession scripted([seen](ScriptedChannel& channel) {
        channel.sendExitSignal("SEGV");
        channel.sendEof();
        seen.wait_for(kGenerousLimit);
        channel.close();
    });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_TRUE(waitUntil([&] { return process->getExitSignal().has_value(); }));
    EXPECT_EQ(readToEnd(*process, false), "");
    EXPECT_FALSE(process->isFinished());
    signalSeen.set_value();
    EXPECT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitCode(), -1);
}

TEST(ProcessOnAScriptedServer, WaitingForZeroOrLessOnlyLooks)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    const auto process = startProcess(scripted.session(), "x");
    for (const milliseconds timeout : {milliseconds(0), milliseconds(-1), milliseconds::min()}) {
        EXPECT_TRUE(returnsWithinASecond([&] { EXPECT_FALSE(process->waitForFinished(timeout)); }))
            << timeout.count();
    }
    EXPECT_TRUE(process->close());
    EXPECT_TRUE(process->waitForFinished(milliseconds(0)));
    EXPECT_TRUE(process->waitForFinished(milliseconds(-1)));
    EXPECT_EQ(process->getProcessState(), State::Finished);
}

TEST(ProcessOnAScriptedServer, WaitingGivesUpWhenTheTimeIsUp)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_FALSE(process->waitForFinished(milliseconds(50)));
    EXPECT_EQ(process->getProcessState(), State::Running);
}

TEST(ProcessOnAScriptedServer, WaitingWithoutLimitLetsOtherThreadsWork)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.readInputToEnd();
        channel.finish(0);
    });
    const auto process = startProcess(scripted.session(), "x");
    auto waited = std::async(std::launch::async,
                             [&] { return process->waitForFinished(milliseconds::max()); });
    EXPECT_EQ(process->write("some input", 10), 10U);
    EXPECT_TRUE(process->sendEOF());
    EXPECT_TRUE(waited.get());
}

TEST(ProcessOnAScriptedServer, ClosesWithAnEndOfFileFirst)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_TRUE(process->close());
    ASSERT_TRUE(scripted.events().waitFor(Event::Close));
    EXPECT_EQ(scripted.events().count(Event::Eof), 1U);
    EXPECT_EQ(process->getProcessState(), State::Finished);
}

TEST(ProcessOnAScriptedServer, ClosesItsChannelWhenItIsDestroyed)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    auto process = startProcess(scripted.session(), "x");
    process.reset();
    EXPECT_TRUE(scripted.events().waitFor(Event::Close));
}

TEST(ProcessOnAScriptedServer, DoesNotStartWithANulByteInItsCommandLine)
{
    ScriptedSession scripted{ScriptedPolicy()};
    const auto process = scripted.session().createProcess(std::string("ls\0 -l", 6));
    EXPECT_FALSE(process->start());
    EXPECT_EQ(process->getProcessState(), State::Failed);
    EXPECT_TRUE(process->start("ls -l"));
    EXPECT_EQ(execRequest(scripted, 0), "ls -l\n");
}

class ProcessTest : public OpenSshSessionTest
{};

TEST_F(ProcessTest, RunsItsCommandLineThroughTheShell)
{
    const auto process = startProcess(session(), "echo $((6 * 7)) | tr 2 3; echo oops >&2; exit 9");
    EXPECT_EQ(readToEnd(*process, standardOutput), "43\n");
    EXPECT_EQ(readToEnd(*process, errorOutput), "oops\n");
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitCode(), 9);
    EXPECT_EQ(process->getProcessState(), State::Finished);
}

TEST_F(ProcessTest, TellsTheSignalThatEndedItsCommand)
{
    const auto process = startProcess(session(), "kill -KILL $$");
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitSignal(), "KILL");
}

TEST_F(ProcessTest, IsNotMadeOnASessionThatIsNotConnected)
{
    Tarnis::SSHSession unconnected;
    EXPECT_EQ(unconnected.createProcess("true"), nullptr);
}

TEST_F(ProcessTest, FailsToStartOnceItsSessionWasDisconnected)
{
    EXPECT_TRUE(session().disconnect());
    const auto process = session().createProcess("true");
    ASSERT_NE(process, nullptr);
    EXPECT_FALSE(process->start());
    EXPECT_EQ(process->getProcessState(), State::Failed);
}

TEST_F(ProcessTest, OpenRunsAFinishedCommandOnceMoreThoughABackgroundChildHoldsItsChannel)
{
    const auto process = startProcess(session(), "sleep 300 & echo run; exit 3");
    EXPECT_EQ(readExactly(*process, 4, standardOutput), "run\n");
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getProcessState(), State::Finished);
    EXPECT_TRUE(process->isOpen());

    ASSERT_TRUE(process->open()) << session().getLastError();
    EXPECT_EQ(readExactly(*process, 4, standardOutput), "run\n");
    EXPECT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitCode(), 3);
}

TEST_F(ProcessTest, OpenRunsARunningCommandOnceMore)
{
    const auto process = startProcess(session(), "echo run; cat");
    EXPECT_EQ(readExactly(*process, 4, standardOutput), "run\n");
    ASSERT_TRUE(process->open()) << session().getLastError();
    EXPECT_EQ(process->getProcessState(), State::Running);
    EXPECT_EQ(readExactly(*process, 4, standardOutput), "run\n");
    EXPECT_TRUE(process->sendEOF());
    EXPECT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitCode(), 0);
}

class OneSessionTest : public OpenSshSessionTest
{
protected:
    OneSessionTest()
        : OpenSshSessionTest(oneSession())
    {}

private:
    static OpenSshOptions oneSession()
    {
        OpenSshOptions options;
        options.maxSessions = 1;
        return options;
    }
};

TEST_F(OneSessionTest, RefusesASecondProcessUntilThereIsRoomForIt)
{
    const auto first = startProcess(session(), "cat");
    const auto second = session().createProcess("echo second");
    EXPECT_FALSE(second->start());
    EXPECT_EQ(second->getProcessState(), State::Failed);
    EXPECT_NE(session().getLastError(), "");
    const auto third = session().execute("echo third");
    EXPECT_EQ(third.outcome, Outcome::NotStarted);
    EXPECT_NE(third.error.find("open failed"), std::string::npos) << third.error;
    EXPECT_EQ(third.error, session().getLastError());
    EXPECT_TRUE(session().isAuthenticated());

    EXPECT_TRUE(first->sendEOF());
    ASSERT_TRUE(first->waitForFinished(kGenerousLimit));
    EXPECT_TRUE(first->close());
    ASSERT_TRUE(waitUntil([&] { return second->start(); })) << session().getLastError();
    EXPECT_EQ(readToEnd(*second, standardOutput), "second\n");
}

class SignalledProcessTest : public UnprivilegedSessionTest
{
protected:
    /// A process of the server's machine, named by its number.
    struct Running
    {
        std::unique_ptr<Tarnis::SSHProcess> process;
        std::string pid;
    };

    Running startSleeper()
    {
        Running running;
        running.process = startProcess(session(), "echo $$; exec sleep 300");
        running.pid = readExactly(*running.process, 1, standardOutput);
        while (!running.pid.empty() && running.pid.back() != '\n') {
            running.pid += readExactly(*running.process, 1, standardOutput);
        }
        running.pid.pop_back();
        return running;
    }

    void expectGone(const Running& running)
    {
        EXPECT_TRUE(waitUntil([&] { return hasGone(running.pid); })) << running.pid;
        EXPECT_TRUE(running.process->waitForFinished(kGenerousLimit));
        EXPECT_EQ(running.process->getProcessState(), State::Finished);
        const auto code = running.process->getExitCode();
        ASSERT_TRUE(code.has_value());
        EXPECT_LT(*code, 0) << "a command that is ended by a signal has no exit code";
    }
};

TEST_F(SignalledProcessTest, EndsWhenItIsKilled)
{
    const Running running = startSleeper();
    EXPECT_FALSE(hasGone(running.pid));
    EXPECT_TRUE(running.process->kill());
    expectGone(running);
}

TEST_F(SignalledProcessTest, EndsWhenItIsTerminated)
{
    const Running running = startSleeper();
    EXPECT_TRUE(running.process->terminate());
    expectGone(running);
}

TEST_F(SignalledProcessTest, MayHandleASignalAndExitWithACodeOfItsOwn)
{
    const auto process =
        startProcess(session(), "trap 'exit 5' USR1; echo ready; while :; do sleep 0.01; done");
    ASSERT_EQ(readExactly(*process, 6, standardOutput), "ready\n");
    EXPECT_TRUE(process->sendSignal("USR1"));
    EXPECT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitCode(), 5);
}

} // namespace

} // namespace TarnisTest
