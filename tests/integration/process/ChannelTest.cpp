// One channel of a session: its life, its exit code, and the plain reads and writes.

#include "integration/process/ProcessTest.h"

#include <FileSystem/HandleFatalError.h>

#include <atomic>
#include <functional>
#include <vector>

namespace TarnisTest {

namespace {

class ChannelTest : public OpenSshSessionTest
{};

TEST_F(ChannelTest, IsOpenFromTheStartOfTheCommandUntilItsEnd)
{
    const auto process = session().createProcess("cat");
    ASSERT_NE(process, nullptr);
    EXPECT_TRUE(process->isValid());
    EXPECT_FALSE(process->isOpen());

    ASSERT_TRUE(process->start());
    EXPECT_TRUE(process->isOpen());

    EXPECT_TRUE(process->sendEOF());
    EXPECT_TRUE(waitUntil([&] {
        // Any exchange with the server takes note of what it says about every channel.
        static_cast<void>(session().execute("true"));
        return !process->isOpen();
    }));
}

TEST_F(ChannelTest, HasNoExitCodeWhileTheCommandRunsAndTheRightOneAfterwards)
{
    const auto process = startProcess(session(), "read line; exit 7");
    EXPECT_EQ(process->getExitCode(), std::nullopt);
    EXPECT_EQ(process->write("go\n", 3), 3U);
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitCode(), 7);
}

TEST_F(ChannelTest, HasANegativeExitCodeOnceItWasClosedHere)
{
    // One that goes on without its input: the end of another may be told after all.
    const auto process = startProcess(session(), "exec sleep 10");
    ASSERT_TRUE(process->close());
    const auto code = process->getExitCode();
    ASSERT_TRUE(code.has_value());
    EXPECT_LT(*code, 0);
}

TEST_F(ChannelTest, ClosingTwiceIsTrueAndClosingWhatWasNeverOpenedIsFalse)
{
    const auto process = session().createProcess("cat");
    EXPECT_FALSE(process->close());
    ASSERT_TRUE(process->start());
    EXPECT_TRUE(process->close());
    EXPECT_TRUE(process->close());
    EXPECT_FALSE(process->isOpen());
}

TEST_F(ChannelTest, SendEofEndsTheInputAndIsTrueAgainWhenRepeated)
{
    const auto process = startProcess(session(), "wc -c");
    EXPECT_EQ(process->write("twelve bytes", 12), 12U);
    EXPECT_TRUE(process->sendEOF());
    EXPECT_TRUE(process->sendEOF());
    EXPECT_EQ(readToEnd(*process, standardOutput), "12\n");
}

TEST_F(ChannelTest, IsAtItsEndOnceBothStreamsWereRead)
{
    const auto process = startProcess(session(), "echo out; echo err >&2");
    EXPECT_FALSE(process->isEOF());
    EXPECT_EQ(readToEnd(*process, standardOutput), "out\n");
    EXPECT_FALSE(process->isEOF());
    EXPECT_EQ(readToEnd(*process, errorOutput), "err\n");
    EXPECT_TRUE(process->isEOF());
    EXPECT_EQ(process->bytesAvailable(standardOutput), 0U);
    EXPECT_EQ(process->bytesAvailable(errorOutput), 0U);
}

TEST_F(ChannelTest, ReadAllOfACommandThatSaysNothingIsEmptyAtOnce)
{
    const auto process = startProcess(session(), "cat");
    EXPECT_TRUE(returnsWithinASecond([&] {
        EXPECT_EQ(process->readAll(standardOutput), "");
        EXPECT_EQ(process->readAll(errorOutput), "");
    }));
}

TEST_F(ChannelTest, ReadAllTakesWhatIsThereAndKeepsTheStreamsApart)
{
    const auto process = startProcess(session(), "printf out; printf err >&2; cat >/dev/null");
    std::string output;
    std::string errors;
    EXPECT_TRUE(waitUntil([&] {
        output += process->readAll(standardOutput);
        errors += process->readAll(errorOutput);
        return output.size() + errors.size() >= 6;
    }));
    EXPECT_EQ(output, "out");
    EXPECT_EQ(errors, "err");
}

TEST_F(ChannelTest, WriteAndReadCarryEveryByteValue)
{
    std::string every;
    for (int value = 0; value < 256; ++value) {
        every.push_back(static_cast<char>(value));
    }
    const auto process = startProcess(session(), "cat");
    EXPECT_EQ(process->write(every.data(), every.size()), every.size());
    ASSERT_TRUE(waitUntil([&] { return process->bytesAvailable(standardOutput) == every.size(); }));
    EXPECT_EQ(process->readAll(standardOutput), every);
}

TEST(ChannelOnAScriptedServer, HasANegativeExitCodeWhenTheServerClosesItWithoutAny)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.close(); });
    const auto process = startProcess(scripted.session(), "x");
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    const auto code = process->getExitCode();
    ASSERT_TRUE(code.has_value());
    EXPECT_LT(*code, 0);
    EXPECT_FALSE(process->isOpen());
}

TEST(ChannelOnAScriptedServer, ReadCountsWhatWasAskedForAndTouchesOnlyWhatArrived)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.writeOutput("0123456789");
        channel.waitForClose();
    });
    const auto process = startProcess(scripted.session(), "x");
    ASSERT_TRUE(waitUntil([&] { return process->bytesAvailable(standardOutput) == 10; }));

    std::string buffer(100, 'x');
    EXPECT_EQ(process->read(buffer.data(), buffer.size(), standardOutput), 100U);
    EXPECT_EQ(buffer, "0123456789" + std::string(90, 'x'));

    EXPECT_EQ(process->read(buffer.data(), buffer.size(), standardOutput), 100U)
        << "nothing more arrived, which is no error";
    EXPECT_EQ(buffer, "0123456789" + std::string(90, 'x'));
}

TEST(ChannelOnAScriptedServer, WriteCountsWhatWasGivenThoughTheWindowTookLess)
{
    std::atomic<bool> reads{false};
    ScriptedSession scripted([&](ScriptedChannel& channel) {
        channel.pauseInput();
        channel.waitUntil([&] { return reads.load(); });
        channel.resumeInput();
        channel.discardInputToEnd();
        channel.finish(0);
    });
    const auto process = startProcess(scripted.session(), "x");
    const std::string much(16 * kMebibyte, 'm');
    EXPECT_EQ(process->write(much.data(), much.size()), much.size());
    reads = true;
    EXPECT_TRUE(process->sendEOF());
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_LT(scripted.events().ofKind(Event::Data).back().bytes, much.size());
}

TEST(ChannelOnAScriptedServer, ReadsAndWritesNothingOnceTheConnectionIsLost)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    const auto process = startProcess(scripted.session(), "x");
    scripted.server().dropConnections();

    std::string buffer(100, 'x');
    EXPECT_TRUE(waitUntil(
        [&] { return process->read(buffer.data(), buffer.size(), standardOutput) == 0; }));
    EXPECT_EQ(buffer, std::string(100, 'x'));
    EXPECT_EQ(process->read(buffer.data(), buffer.size(), errorOutput), 0U);
    EXPECT_EQ(process->write(buffer.data(), buffer.size()), 0U);
    EXPECT_EQ(process->bytesAvailable(standardOutput), 0U);
    EXPECT_EQ(process->readAll(standardOutput), "");
    EXPECT_FALSE(process->isOpen());
    EXPECT_FALSE(process->sendSignal("TERM"));
    EXPECT_TRUE(process->isValid()) << "the session is still there";
}

struct Operation
{
    const char* name;
    std::function<void(Tarnis::SSHProcess&)> run;
};

/// Everything that touches the channel; open() last, since it changes the state of a process.
std::vector<Operation> everyOperation()
{
    using Process = Tarnis::SSHProcess;
    static char buffer[8] = {};
    const std::chrono::milliseconds noTime{0};
    return {
        {"isOpen", [](Process& p) { p.isOpen(); }},
        {"close", [](Process& p) { p.close(); }},
        {"isEOF", [](Process& p) { p.isEOF(); }},
        {"sendEOF", [](Process& p) { p.sendEOF(); }},
        {"sendSignal", [](Process& p) { p.sendSignal("INT"); }},
        {"kill", [](Process& p) { p.kill(); }},
        {"terminate", [](Process& p) { p.terminate(); }},
        {"getExitCode", [](Process& p) { p.getExitCode(); }},
        {"bytesAvailable", [](Process& p) { p.bytesAvailable(standardOutput); }},
        {"read", [](Process& p) { p.read(buffer, sizeof buffer, standardOutput); }},
        {"write", [](Process& p) { p.write(buffer, sizeof buffer); }},
        {"readAll", [](Process& p) { p.readAll(errorOutput); }},
        {"readSome",
         [=](Process& p) { static_cast<void>(p.readSome(buffer, sizeof buffer, false, noTime)); }},
        {"writeSome",
         [=](Process& p) { static_cast<void>(p.writeSome(buffer, sizeof buffer, noTime)); }},
        {"waitForFinished", [=](Process& p) { p.waitForFinished(noTime); }},
        {"open", [](Process& p) { static_cast<void>(p.open()); }},
    };
}

/// Those that look at the channel only while the command runs.
std::vector<Operation> operationsOfARunningProcess()
{
    using Process = Tarnis::SSHProcess;
    return {
        {"isRunning", [](Process& p) { p.isRunning(); }},
        {"isFinished", [](Process& p) { p.isFinished(); }},
        {"getProcessState", [](Process& p) { p.getProcessState(); }},
        {"setCommandLine", [](Process& p) { p.setCommandLine("true"); }},
        {"start", [](Process& p) { static_cast<void>(p.start()); }},
        {"start with a command line", [](Process& p) { static_cast<void>(p.start("true")); }},
    };
}

/// What a fatal error out of the operation says.
std::string fatalErrorOf(const Operation& operation, Tarnis::SSHProcess& process)
{
    try {
        operation.run(process);
    } catch (const FileSystem::handle_fatal_error& error) {
        return error.what();
    }
    return "(no error)";
}

void expectInvalid(const std::vector<Operation>& operations, Tarnis::SSHProcess& process)
{
    for (const Operation& operation : operations) {
        EXPECT_EQ(fatalErrorOf(operation, process), "invalid") << operation.name;
    }
}

class OutlivingChannelTest : public ChannelTest
{
protected:
    void SetUp() override
    {
        ChannelTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        running_ = startProcess(session(), "cat");
        notStarted_ = session().createProcess("cat");
    }

    void expectBothInvalid()
    {
        EXPECT_FALSE(running_->isValid());
        EXPECT_FALSE(notStarted_->isValid());
        expectInvalid(operationsOfARunningProcess(), *running_);
        expectInvalid(everyOperation(), *running_);
        EXPECT_EQ(notStarted_->getProcessState(), State::NotStarted);
        expectInvalid(everyOperation(), *notStarted_);
        EXPECT_NO_THROW(running_.reset());
        EXPECT_NO_THROW(notStarted_.reset());
    }

private:
    std::unique_ptr<Tarnis::SSHProcess> running_;
    std::unique_ptr<Tarnis::SSHProcess> notStarted_;
};

TEST_F(OutlivingChannelTest, IsInvalidOnceItsSessionIsDestroyed)
{
    dropSession();
    expectBothInvalid();
}

TEST_F(OutlivingChannelTest, IsInvalidOnceItsSessionIsDisconnected)
{
    EXPECT_TRUE(session().disconnect());
    expectBothInvalid();
}

TEST_F(OutlivingChannelTest, IsInvalidOnceItsSessionIsSilentlyDisconnected)
{
    session().silentDisconnect();
    expectBothInvalid();
}

TEST_F(OutlivingChannelTest, StaysInvalidWhenItsSessionConnectsAgain)
{
    EXPECT_TRUE(session().disconnect());
    logIn(session(), accessTo(server()));
    expectBothInvalid();
    expectOutput(session().execute("echo again"), "again\n");
}

} // namespace

} // namespace TarnisTest
