// Many threads, one session.

#include "integration/process/ProcessTest.h"
#include "support/PseudoRandom.h"
#include "support/Sha256.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace TarnisTest {

namespace {

using std::chrono::milliseconds;

constexpr int kThreads = 8;
constexpr int kRounds = 6;

class ProcessThreadsTest : public OpenSshSessionTest
{
protected:
    ProcessThreadsTest()
        : OpenSshSessionTest(withRoom())
    {}

    /// Runs the work once in each thread, given the thread's number.
    static void inThreads(const std::function<void(int)>& work)
    {
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int number = 0; number < kThreads; ++number) {
            threads.emplace_back(work, number);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    static std::string dataOf(int thread, int round)
    {
        const auto seed = static_cast<std::uint64_t>(thread) * 100 + static_cast<unsigned>(round);
        return pseudoRandomBytes(seed, 100'000 + 1009 * seed);
    }

    void runByExecute(int thread, int round)
    {
        const std::string data = dataOf(thread, round);
        const auto result = session().execute("cat; exit " + std::to_string(thread), data);
        EXPECT_EQ(result.outcome, Outcome::Completed) << describe(result);
        EXPECT_EQ(result.exitCode, thread);
        EXPECT_EQ(sha256(result.output), sha256(data));
    }

    /// A process driven with the calls that may wait.
    void runByWaiting(int thread, int round)
    {
        const std::string data = dataOf(thread, round);
        const auto process =
            startProcess(session(), "sha256sum | cut -c1-64; exit " + std::to_string(thread));
        EXPECT_TRUE(writeAll(*process, data));
        EXPECT_TRUE(process->sendEOF());
        EXPECT_EQ(readToEnd(*process, standardOutput), sha256(data) + "\n");
        EXPECT_TRUE(process->waitForFinished(kGenerousLimit));
        EXPECT_EQ(process->getExitCode(), thread);
    }

    /// A process driven with the calls that return at once.
    void runByPolling(int thread, int round)
    {
        const std::string line = std::to_string(thread) + "." + std::to_string(round) + "\n";
        const auto process = startProcess(session(), "cat; exit " + std::to_string(thread));
        EXPECT_EQ(process->write(line.data(), line.size()), line.size());
        EXPECT_EQ(process->getExitCode(), std::nullopt);
        std::string output;
        EXPECT_TRUE(waitUntil([&] {
            output += process->readAll(standardOutput);
            EXPECT_EQ(process->bytesAvailable(errorOutput), 0U);
            EXPECT_TRUE(process->isOpen());
            return output.size() >= line.size();
        }));
        EXPECT_EQ(output, line);
        EXPECT_TRUE(process->sendEOF());
        EXPECT_TRUE(waitUntil([&] { return process->isFinished(); }));
        EXPECT_EQ(process->getExitCode(), thread);
    }

private:
    static OpenSshOptions withRoom()
    {
        OpenSshOptions options;
        options.maxSessions = 100;
        return options;
    }
};

TEST_F(ProcessThreadsTest, EachGetsItsOwnOutputWhateverTheOthersDo)
{
    inThreads([this](int thread) {
        for (int round = 0; round < kRounds; ++round) {
            switch ((thread + round) % 3) {
            case 0:
                runByExecute(thread, round);
                break;
            case 1:
                runByWaiting(thread, round);
                break;
            default:
                runByPolling(thread, round);
            }
            EXPECT_TRUE(session().isConnected());
            EXPECT_EQ(session().getState(), Tarnis::RemoteSessionState::Authenticated);
        }
    });
}

TEST_F(ProcessThreadsTest, MayWatchAProcessThatAnotherOneDrives)
{
    const std::string data = pseudoRandomBytes(40, 3'000'000);
    const auto process = startProcess(session(), "sha256sum | cut -c1-64");
    std::atomic<bool> done{false};
    constexpr int watcherCount = 3;
    std::vector<std::thread> watchers;
    watchers.reserve(watcherCount);
    for (int number = 0; number < watcherCount; ++number) {
        watchers.emplace_back([&] {
            while (!done) {
                EXPECT_NE(process->getProcessState(), State::Failed);
                EXPECT_TRUE(process->isValid());
                EXPECT_EQ(process->bytesAvailable(errorOutput), 0U);
                EXPECT_TRUE(session().isAuthenticated());
            }
        });
    }
    EXPECT_TRUE(writeAll(*process, data));
    EXPECT_TRUE(process->sendEOF());
    EXPECT_EQ(readToEnd(*process, standardOutput), sha256(data) + "\n");
    EXPECT_TRUE(process->waitForFinished(kGenerousLimit));
    done = true;
    for (std::thread& watcher : watchers) {
        watcher.join();
    }
    EXPECT_EQ(process->getExitCode(), 0);
}

TEST_F(ProcessThreadsTest, MayReadBothStreamsAndWriteTheInputOfOneProcess)
{
    const std::string data = pseudoRandomBytes(41, 4'000'000);
    const auto process = startProcess(session(), "tee /dev/stderr");
    std::string output;
    std::string errors;
    std::thread reader([&] { output = readToEnd(*process, standardOutput); });
    std::thread errorReader([&] { errors = readToEnd(*process, errorOutput); });
    EXPECT_TRUE(writeAll(*process, data));
    EXPECT_TRUE(process->sendEOF());
    reader.join();
    errorReader.join();
    EXPECT_EQ(sha256(output), sha256(data));
    EXPECT_EQ(sha256(errors), sha256(data));
}

TEST(ExecuteBesideAnotherThread, IsRightThoughTheOtherThreadReadsItsAnswersOffTheConnection)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        if (channel.command() == "stay\n") {
            channel.waitForClose();
        } else {
            channel.writeOutput("done");
            channel.finish(4);
        }
    });
    const auto staying = startProcess(scripted.session(), "stay");
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            EXPECT_EQ(staying->readAll(standardOutput), "");
        }
    });
    for (int round = 0; round < 300; ++round) {
        const auto result = scripted.session().execute("x", {}, kGenerousLimit);
        EXPECT_EQ(result.outcome, Outcome::Completed) << round << ": " << describe(result);
        EXPECT_EQ(result.output, "done");
        EXPECT_EQ(result.exitCode, 4);
    }
    done = true;
    reader.join();
}

TEST_F(ProcessThreadsTest, StartAProcessOnceAmongThem)
{
    const TemporaryDirectory directory;
    for (int round = 0; round < kRounds; ++round) {
        const std::string trace = directory.file(std::to_string(round));
        const auto process = session().createProcess("echo started >> " + trace + "; cat");
        std::atomic<int> started{0};
        inThreads([&](int) { started += process->start() ? 1 : 0; });
        EXPECT_EQ(started, 1);
        EXPECT_TRUE(process->sendEOF());
        EXPECT_EQ(readToEnd(*process, false), "");
        EXPECT_EQ(readFile(trace), "started\n");
    }
}

TEST_F(ProcessThreadsTest, AllLoseTheConnectionWhenOneDisconnects)
{
    std::atomic<int> begun{0};
    std::array<Tarnis::SSHExecuteResult, kThreads> results;
    std::thread disconnector([&] {
        EXPECT_TRUE(waitUntil([&] { return begun == kThreads; }));
        EXPECT_TRUE(session().disconnect());
    });
    inThreads([&](int thread) {
        expectOutput(session().execute("true"), "");
        ++begun;
        results.at(static_cast<std::size_t>(thread)) = session().execute("sleep 300");
    });
    disconnector.join();
    for (const auto& result : results) {
        EXPECT_TRUE(result.outcome == Outcome::ConnectionLost ||
                    result.outcome == Outcome::NotStarted)
            << describe(result);
        EXPECT_NE(result.error, "");
    }
}

} // namespace

} // namespace TarnisTest
