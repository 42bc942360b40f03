// One command from its start to its end in one call, against real servers on a good line.

#include "integration/process/ProcessTest.h"
#include "support/AsyncSshServer.h"
#include "support/PseudoRandom.h"
#include "support/Sha256.h"

#include <filesystem>
#include <fstream>

namespace TarnisTest {

namespace {

using std::chrono::milliseconds;

class ExecuteTest : public OpenSshSessionTest
{
protected:
    /// A file for remote commands to read; returns its path.
    std::string file(const std::string& name, const std::string& content) const
    {
        return directory_.write(name, content);
    }

private:
    TemporaryDirectory directory_;
};

TEST_F(ExecuteTest, GivesEmptyOutputForACommandThatSaysNothing)
{
    const auto result = session().execute("true");
    expectOutput(result, "");
    EXPECT_EQ(result.errorOutput, "");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.exitSignal, "");
    EXPECT_EQ(result.inputConsumed, 0U);
    EXPECT_FALSE(result.timedOut());
}

TEST_F(ExecuteTest, GivesOutputErrorOutputAndExitCode)
{
    const auto result = session().execute("echo out; echo err >&2; exit 3");
    EXPECT_EQ(result.outcome, Outcome::Completed);
    EXPECT_EQ(result.output, "out\n");
    EXPECT_EQ(result.errorOutput, "err\n");
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_FALSE(result.succeeded());
}

TEST_F(ExecuteTest, DrainsMuchOutputAndErrorOutputTogether)
{
    const std::string output = pseudoRandomBytes(1, 10 * kMebibyte);
    const std::string errors = pseudoRandomBytes(2, 10 * kMebibyte);
    const auto result = session().execute("cat " + file("output", output) + " & cat " +
                                          file("errors", errors) + " >&2; wait");
    expectOutput(result, output);
    EXPECT_EQ(result.errorOutput.size(), errors.size());
    EXPECT_EQ(sha256(result.errorOutput), sha256(errors));
}

TEST_F(ExecuteTest, CarriesMuchInputThroughACommandAndBack)
{
    const std::string input = pseudoRandomBytes(3, 64 * kMebibyte);
    const auto result = session().execute("cat", input);
    expectOutput(result, input);
    EXPECT_EQ(result.inputConsumed, input.size());
}

TEST_F(ExecuteTest, EndsTheInputAfterItsLastByte)
{
    const std::string input = pseudoRandomBytes(4, 3'000'001);
    const auto result = session().execute("wc -c", input);
    expectOutput(result, "3000001\n");
    EXPECT_EQ(result.inputConsumed, input.size());
}

TEST_F(ExecuteTest, ServesACommandThatReadsOnlyTheBeginningOfItsInput)
{
    const std::string input = pseudoRandomBytes(5, 10 * kMebibyte);
    const auto result = session().execute("head -c 10", input);
    expectOutput(result, input.substr(0, 10));
}

TEST_F(ExecuteTest, ServesACommandThatClosesItsInputAndTalksOn)
{
    const std::string input(10 * kMebibyte, 'x');
    const std::string output = pseudoRandomBytes(6, 5 * kMebibyte);
    const auto result =
        session().execute("exec 0<&-; cat " + file("output", output) + "; exit 4", input);
    EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(sha256(result.output), sha256(output));
}

TEST_F(ExecuteTest, ServesACommandThatReadsItsInputOnlyAfterMuchOutput)
{
    const std::string input = pseudoRandomBytes(7, 8 * kMebibyte);
    const std::string output = pseudoRandomBytes(8, 8 * kMebibyte);
    const auto result =
        session().execute("cat " + file("output", output) + "; sha256sum | cut -c1-64", input);
    expectOutput(result, output + sha256(input) + "\n");
}

TEST_F(ExecuteTest, NamesTheSignalThatEndedTheCommandAndHasNoExitCode)
{
    const auto result = session().execute("echo before; kill -TERM $$; sleep 300");
    EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
    EXPECT_EQ(result.output, "before\n");
    EXPECT_EQ(result.exitSignal, "TERM");
    EXPECT_EQ(result.exitCode, std::nullopt);
    EXPECT_FALSE(result.succeeded());
}

TEST_F(ExecuteTest, RunsACommandLineOf100000Bytes)
{
    const std::string text(100'000, 'y');
    expectOutput(session().execute("echo " + text), text + "\n");
}

TEST_F(ExecuteTest, RunsACommandLineThatIsNotUtf8)
{
    const std::string bytes = "\xff\xfe\xc3\x28\x80";
    expectOutput(session().execute("printf %s '" + bytes + "'"), bytes);
}

TEST_F(ExecuteTest, RunsSeveralLinesAndCarriageReturns)
{
    expectOutput(session().execute("echo one\necho two\n\n"), "one\ntwo\n");
    expectOutput(session().execute("printf %s 'a\rb'"), "a\rb");
}

TEST_F(ExecuteTest, TakesTimeLimitsOfAnyLength)
{
    for (const milliseconds limit : {milliseconds::max(), milliseconds::max() - milliseconds(1),
                                     milliseconds(std::chrono::hours(1'000'000))}) {
        expectOutput(session().execute("echo done", {}, limit), "done\n");
    }
}

TEST_F(ExecuteTest, RefusesACommandLineWithANulByte)
{
    TemporaryDirectory directory;
    const std::string trace = directory.file("trace");
    std::string commandLine = "touch " + trace;
    commandLine += '\0';
    const auto result = session().execute(commandLine + "; true");
    EXPECT_EQ(result.outcome, Outcome::NotStarted);
    EXPECT_EQ(result.error, "the command line holds a NUL byte");
    EXPECT_FALSE(std::filesystem::exists(trace));
    expectOutput(session().execute("echo next"), "next\n");
}

TEST_F(ExecuteTest, DoesNotWaitForABackgroundChildThatHoldsTheChannelOpen)
{
    const auto result = session().execute("sleep 300 & echo hello; exit 6");
    EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
    EXPECT_EQ(result.output, "hello\n");
    EXPECT_EQ(result.exitCode, 6);
    expectOutput(session().execute("echo next"), "next\n");
}

TEST_F(ExecuteTest, KeepsAllOutputOfACommandThatLeavesABackgroundChild)
{
    const std::string output = pseudoRandomBytes(9, 10 * kMebibyte);
    const auto result = session().execute("sleep 300 & cat " + file("output", output));
    expectOutput(result, output);
}

TEST_F(ExecuteTest, KeepsWhatABackgroundChildWritesWithoutAPause)
{
    const std::string output = pseudoRandomBytes(10, 10 * kMebibyte);
    const std::string path = file("output", output);
    const auto result = session().execute("(cat " + path + "; exec sleep 300) & exit 2");
    EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.output.size(), output.size());
    EXPECT_EQ(sha256(result.output), sha256(output));
}

TEST_F(ExecuteTest, DoesNotWaitForABackgroundChildThatGoesOnWriting)
{
    const auto result =
        session().execute("(while sleep 0.05; do echo more; done) & echo hello; exit 6");
    EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
    EXPECT_EQ(result.output.substr(0, 6), "hello\n");
    EXPECT_EQ(result.exitCode, 6);
    expectOutput(session().execute("echo next"), "next\n");
}

TEST_F(ExecuteTest, FeedsInputToACommandThatLeavesABackgroundChild)
{
    const std::string input = pseudoRandomBytes(11, 4 * kMebibyte);
    const auto result = session().execute("sleep 300 </dev/null & cat", input);
    expectOutput(result, input);
}

TEST_F(ExecuteTest, RunsHundredsOfCommandsOneAfterAnother)
{
    for (int number = 0; number < 200; ++number) {
        const std::string text = std::to_string(number);
        const auto result = session().execute("cat; exit 1", text);
        ASSERT_EQ(result.output, text) << describe(result);
        ASSERT_EQ(result.exitCode, 1) << describe(result);
    }
}

TEST_F(ExecuteTest, DoesNotStartOnASessionThatIsNotConnected)
{
    Tarnis::SSHSession unconnected;
    EXPECT_EQ(unconnected.execute("true").outcome, Outcome::NotStarted);
    EXPECT_EQ(unconnected.execute("true").error, "the session is not logged in");
    EXPECT_EQ(session().execute("false").error, "");
    EXPECT_TRUE(session().disconnect());
    EXPECT_EQ(session().execute("true").outcome, Outcome::NotStarted);
}

TEST_F(ExecuteTest, DoesNotStartBeforeTheUserIsAuthenticated)
{
    Tarnis::SSHSession early;
    ASSERT_TRUE(early.setHostName("127.0.0.1") && early.setPortNumber(server().port()));
    ASSERT_TRUE(early.connect()) << early.getLastError();
    EXPECT_EQ(early.execute("true").outcome, Outcome::NotStarted);
    EXPECT_EQ(early.getState(), Tarnis::RemoteSessionState::HostAuthenticating);
}

/// The most memory that this process has used at once since forgetPeak(), in bytes.
std::size_t peakMemory()
{
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word) {
        std::size_t kibibytes = 0;
        if (word == "VmHWM:" && status >> kibibytes) {
            return kibibytes * 1024;
        }
    }
    return 0;
}

void forgetPeak()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}

bool sanitizerKeepsFreedMemory()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

TEST_F(ExecuteTest, NeedsLittleMemoryForInputThatIsReadSlowly)
{
    if (sanitizerKeepsFreedMemory()) {
        GTEST_SKIP() << "memory cannot be measured under a sanitizer";
    }
    const std::string input = pseudoRandomBytes(12, 64 * kMebibyte);
    forgetPeak();
    const std::size_t before = peakMemory();
    ASSERT_GT(before, input.size()) << "the peak cannot be measured";
    const auto result = session().execute(
        "for i in $(seq 64); do head -c 1048576 >/dev/null; sleep 0.02; done; wc -c", input);
    expectOutput(result, "0\n");
    EXPECT_EQ(result.inputConsumed, input.size());
    EXPECT_LT(peakMemory() - before, 16 * kMebibyte);
}

class RekeyTest : public OpenSshSessionTest
{
protected:
    RekeyTest()
        : OpenSshSessionTest(rekeyingOften())
    {}

private:
    static OpenSshOptions rekeyingOften()
    {
        OpenSshOptions options;
        options.extraLines = {"RekeyLimit 1M", "LogLevel DEBUG1"};
        return options;
    }
};

TEST_F(RekeyTest, LosesNoByteOfInputOrOutput)
{
    const std::string data = pseudoRandomBytes(13, 20 * kMebibyte);
    expectOutput(session().execute("cat", data), data);
}

TEST_F(RekeyTest, LosesNoByteOfOutput)
{
    const TemporaryDirectory directory;
    const std::string data = pseudoRandomBytes(14, 20 * kMebibyte);
    expectOutput(session().execute("cat " + directory.write("data", data)), data);
}

TEST_F(RekeyTest, LosesNoByteOfInput)
{
    const std::string data = pseudoRandomBytes(15, 20 * kMebibyte);
    expectOutput(session().execute("sha256sum | cut -c1-64", data), sha256(data) + "\n");
}

TEST_F(RekeyTest, LosesNoByteOfPlainTransfers)
{
    const std::string data = pseudoRandomBytes(16, 8 * kMebibyte);
    const auto process = startProcess(session(), "sha256sum | cut -c1-64; yes | head -c 8388608");
    EXPECT_TRUE(writeAll(*process, data)) << session().getLastError();
    EXPECT_TRUE(process->sendEOF());
    EXPECT_EQ(readExactly(*process, 65, standardOutput), sha256(data) + "\n");
    Status end = Status::Error;
    EXPECT_EQ(readToEnd(*process, standardOutput, &end).size(), 8 * kMebibyte);
    EXPECT_EQ(end, Status::EndOfStream);
}

class DropbearExecuteTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!requireServer(DropbearServer::availability())) {
            return;
        }
        server_ = std::make_unique<DropbearServer>();
        session_ = openSession(accessTo(*server_));
    }

    Tarnis::SSHSession& session() { return *session_; }

private:
    std::unique_ptr<DropbearServer> server_;
    std::unique_ptr<Tarnis::SSHSession> session_;
};

TEST_F(DropbearExecuteTest, LearnsTheExitCodeThatComesAfterTheEndOfFile)
{
    for (int code = 0; code < 20; ++code) {
        const auto result =
            session().execute("echo out; echo err >&2; exit " + std::to_string(code));
        EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
        EXPECT_EQ(result.output, "out\n");
        EXPECT_EQ(result.errorOutput, "err\n");
        EXPECT_EQ(result.exitCode, code);
    }
}

TEST_F(DropbearExecuteTest, CarriesMuchInputThroughACommandAndBack)
{
    const std::string input = pseudoRandomBytes(17, 16 * kMebibyte);
    expectOutput(session().execute("cat", input), input);
}

TEST_F(DropbearExecuteTest, NamesTheSignalThatEndedTheCommand)
{
    const auto result = session().execute("kill -KILL $$");
    EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
    EXPECT_EQ(result.exitSignal, "KILL");
    EXPECT_EQ(result.exitCode, std::nullopt);
}

TEST_F(DropbearExecuteTest, DoesNotWaitForABackgroundChild)
{
    const auto result = session().execute("sleep 300 & echo hello; exit 6", {}, kGenerousLimit);
    EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
    EXPECT_EQ(result.output, "hello\n");
    EXPECT_EQ(result.exitCode, 6);
}

TEST_F(DropbearExecuteTest, TellsAPlainProcessItsExitCode)
{
    const auto process = startProcess(session(), "echo out; exit 8");
    EXPECT_EQ(readToEnd(*process, standardOutput), "out\n");
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_TRUE(waitUntil([&] { return process->getExitCode() == 8; }));
}

/// A server that closes channels without an end of file.
class CloseWithoutEofTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!requireServer(AsyncSshServer::availability())) {
            return;
        }
        AsyncSshOptions options;
        options.echoes = true;
        server_ = std::make_unique<AsyncSshServer>(options);
        session_ =
            openSession({server_->port(), server_->user(), {}, server_->clientKey().privatePath});
    }

    Tarnis::SSHSession& session() { return *session_; }

private:
    std::unique_ptr<AsyncSshServer> server_;
    std::unique_ptr<Tarnis::SSHSession> session_;
};

TEST_F(CloseWithoutEofTest, LosesNoByte)
{
    for (const std::size_t size : {std::size_t(0), std::size_t(10), 3 * kMebibyte}) {
        const std::string input = pseudoRandomBytes(18, size);
        const auto result = session().execute("give it back", input, kGenerousLimit);
        EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
        EXPECT_EQ(result.exitCode, 7);
        EXPECT_EQ(sha256(result.output), sha256(input)) << describe(result);
        EXPECT_EQ(sha256(result.errorOutput), sha256(input)) << describe(result);
    }
}

TEST_F(CloseWithoutEofTest, EndsTheStreamsOfAPlainProcess)
{
    const std::string input = pseudoRandomBytes(19, 100'000);
    const auto process = startProcess(session(), "give it back");
    EXPECT_TRUE(writeAll(*process, input));
    EXPECT_TRUE(process->sendEOF());
    Status end = Status::Error;
    EXPECT_EQ(sha256(readToEnd(*process, standardOutput, &end)), sha256(input));
    EXPECT_EQ(end, Status::EndOfStream);
    EXPECT_EQ(sha256(readToEnd(*process, errorOutput, &end)), sha256(input));
    EXPECT_EQ(end, Status::EndOfStream);
    EXPECT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitCode(), 7);
}

} // namespace

} // namespace TarnisTest
