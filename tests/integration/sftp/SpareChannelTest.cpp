// The channel that a queue leaves to the next one of its file system.

#include "handles/SSHCallLimits.h"
#include "integration/sftp/HostileReplies.h"
#include "integration/sftp/QueueTest.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <future>
#include <set>

namespace TarnisTest {

namespace {

using namespace SftpActions;
using FileSystem::Failure;

class SpareChannelTest : public ScriptedSftpTest
{
protected:
    void startWith(int sessions)
    {
        OpenSshOptions options;
        options.maxSessions = sessions;
        start({}, options);
    }

    /// A queue of the file system's that has a channel, and has used it.
    std::unique_ptr<StorageSystemQueue> usedQueue()
    {
        auto queue = files().createQueue();
        EXPECT_GE(queue->descriptor(), 0);
        EXPECT_FALSE(*lookUpFailure(*queue, server().sftp().root()));
        return queue;
    }

    /// How many server processes have begun, that of the file system too.
    std::size_t sessionCount() { return server().sftp().requestCount(SftpPacket::Init); }

    /// All of them.
    std::set<int> processes()
    {
        std::set<int> found;
        for (const SftpEvent& event : server().sftp().events()) {
            found.insert(event.session);
        }
        return found;
    }

    /// Those that a queue was served by.
    std::set<int> queueProcesses()
    {
        std::set<int> found;
        for (const SftpEvent& event : server().sftp().events()) {
            if (event.request == SftpPacket::Lstat) {
                found.insert(event.session);
            }
        }
        return found;
    }

    static bool isRunning(int process)
    {
        return std::filesystem::exists("/proc/" + std::to_string(process));
    }

    static void expectToEnd(const std::set<int>& processes)
    {
        EXPECT_FALSE(processes.empty());
        EXPECT_TRUE(
            waitUntil([&] { return std::none_of(processes.begin(), processes.end(), isRunning); }));
    }
};

TEST_F(SpareChannelTest, ServesOneQueueAfterTheOther)
{
    start();
    for (int round = 0; round < 5; ++round) {
        usedQueue();
    }
    EXPECT_EQ(sessionCount(), 2U);
}

TEST_F(SpareChannelTest, ServesOneQueueAtATime)
{
    start();
    usedQueue();
    const auto first = usedQueue();
    const auto second = usedQueue();
    EXPECT_EQ(sessionCount(), 3U);
    EXPECT_EQ(queueProcesses().size(), 2U);
}

TEST_F(SpareChannelTest, IsOneWhereSeveralQueuesGo)
{
    start();
    {
        const auto first = usedQueue();
        const auto second = usedQueue();
        const auto third = usedQueue();
    }
    EXPECT_TRUE(waitUntil([this] {
        const auto all = processes();
        return std::count_if(all.begin(), all.end(), isRunning) == 2;
    }));
    usedQueue();
    EXPECT_EQ(sessionCount(), 4U);
}

TEST_F(SpareChannelTest, ServesThreadsThatTakeItInTurns)
{
    start();
    std::vector<std::future<void>> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.push_back(std::async(std::launch::async, [this] {
            for (int round = 0; round < 20; ++round) {
                usedQueue();
            }
        }));
    }
    for (auto& thread : threads) {
        thread.get();
    }
    // Far more often than not there is one for who comes.
    EXPECT_LT(sessionCount(), 60U);
}

struct Need
{
    std::string name;
    int sessions;
    std::function<bool(SftpClient&)> isMet;
};

std::ostream& operator<<(std::ostream& out, const Need& need)
{
    return out << need.name;
}

class SpareChannelPlaceTest : public SpareChannelTest, public ::testing::WithParamInterface<Need>
{};

TEST_P(SpareChannelPlaceTest, IsGivenBackToWhoNeedsIt)
{
    startWith(GetParam().sessions);
    usedQueue();
    EXPECT_TRUE(GetParam().isMet(client())) << client().session().getLastError();
    // It was needed: the next one is another.
    EXPECT_TRUE(waitUntil([this] { return files().createQueue()->descriptor() >= 0; }));
    EXPECT_GT(sessionCount(), 2U);
}

bool runsCommand(SftpClient& client)
{
    return client.session().execute("true").succeeded();
}

bool startsProcess(SftpClient& client)
{
    const auto process = client.session().createProcess("exit 3");
    return process->start() && process->waitForFinished(kGenerousLimit) &&
           process->getExitCode() == 3;
}

bool makesFileSystem(SftpClient& client)
{
    return client.session().createSFTPFileSystem() != nullptr;
}

bool makesQueueOfAnother(SftpClient& client)
{
    const auto other = client.session().createSFTPFileSystem();
    return other != nullptr && other->createQueue()->descriptor() >= 0;
}

INSTANTIATE_TEST_SUITE_P(Of, SpareChannelPlaceTest,
                         ::testing::Values(Need{"ACommand", 2, runsCommand},
                                           Need{"AProcess", 2, startsProcess},
                                           Need{"AFileSystem", 2, makesFileSystem},
                                           Need{"AnotherFileSystemsQueue", 3, makesQueueOfAnother}),
                         [](const auto& need) { return need.param.name; });

TEST_F(SpareChannelTest, IsNotGivenBackWhereThereIsRoom)
{
    startWith(3);
    usedQueue();
    EXPECT_TRUE(runsCommand(client()));
    usedQueue();
    EXPECT_EQ(sessionCount(), 2U);
}

TEST_F(SpareChannelTest, IsReplacedWhereItHasDied)
{
    start();
    usedQueue();
    const auto before = queueProcesses();
    ASSERT_EQ(before.size(), 1U);
    ::kill(*before.begin(), SIGKILL);
    expectToEnd(before);
    // The server has closed the channel when it answers this.
    EXPECT_TRUE(runsCommand(client()));
    usedQueue();
    EXPECT_EQ(sessionCount(), 3U);
}

/// Channels are asked whether they live as soon as they were left.
class DistrustedChannelTest : public SpareChannelTest
{
protected:
    void SetUp() override { Tarnis::SSHCallLimits::setTrust({}); }

    void TearDown() override
    {
        Tarnis::SSHCallLimits::setTrust(Tarnis::SSHCallLimits::defaultTrust);
    }
};

TEST_F(DistrustedChannelTest, ServesTheNextQueueWhereItAnswers)
{
    start();
    usedQueue();
    usedQueue();
    EXPECT_EQ(sessionCount(), 2U);
    EXPECT_EQ(server().sftp().requestCount(SftpPacket::Realpath), 1U);
}

TEST_F(DistrustedChannelTest, IsReplacedWhereItEndsInsteadOfAnswering)
{
    start();
    usedQueue();
    SftpScript script;
    script.rules = {{every(SftpPacket::Realpath), exit()}};
    server().sftp().setScript(script);
    usedQueue();
    EXPECT_EQ(sessionCount(), 3U);
}

// What is asked is only whether anything is answered at all.
TEST_F(DistrustedChannelTest, NeitherHarmsNorStopsTheNextQueueWhereItAnswersAmiss)
{
    start();
    auto flaws = wrongReplies();
    const auto more = wrongPackets();
    flaws.insert(flaws.end(), more.begin(), more.end());
    for (const Flaw& flaw : flaws) {
        // One that never answers is waited for as long as a new channel would be.
        if (flaw.mayWait) {
            continue;
        }
        SCOPED_TRACE(flaw.name);
        usedQueue();
        SftpScript script;
        script.rules = {{nth(SftpPacket::Realpath, 1), flaw.action}};
        server().sftp().setScript(script);
        const auto known = server().sftp().requestCount(SftpPacket::Realpath);
        usedQueue();
        EXPECT_GT(server().sftp().requestCount(SftpPacket::Realpath), known);
        server().sftp().setScript({});
    }
}

TEST_F(SpareChannelTest, IsNoneThatSomethingIsInFlightOn)
{
    start();
    auto queue = usedQueue();
    SftpScript script;
    script.rules = {{nth(SftpPacket::Lstat, 1), silence()}};
    server().sftp().setScript(script);
    queue->lookUp(server().sftp().root(), [](const Failure&, const auto&) { FAIL(); });
    EXPECT_EQ(queue->pump(std::chrono::milliseconds(1)), 0U);
    queue.reset();
    server().sftp().setScript({});
    usedQueue();
    EXPECT_EQ(sessionCount(), 3U);
}

TEST_F(SpareChannelTest, IsNoneThatAFileIsOpenOn)
{
    start();
    auto queue = usedQueue();
    openFile(*queue, put("file", "x"), kRead);
    queue.reset();
    usedQueue();
    EXPECT_EQ(sessionCount(), 3U);
}

TEST_F(SpareChannelTest, GoesWithItsFileSystem)
{
    start();
    usedQueue();
    client().dropFiles();
    expectToEnd(processes());
    EXPECT_TRUE(runsCommand(client()));
}

TEST_F(SpareChannelTest, GoesWithAFileSystemThatIsAborted)
{
    start();
    usedQueue();
    files().abort();
    expectToEnd(processes());
    EXPECT_LT(files().createQueue()->descriptor(), 0);
}

TEST_F(SpareChannelTest, GoesWithItsConnection)
{
    start();
    usedQueue();
    client().session().disconnect();
    expectToEnd(processes());
    logIn(client().session(), accessTo(server().ssh()));
    ASSERT_TRUE(client().openFilesAgain());
    usedQueue();
}

TEST_F(SpareChannelTest, IsOfNoUseAfterAnInterruption)
{
    start();
    usedQueue();
    client().session().interrupt();
    const auto queue = files().createQueue();
    EXPECT_EQ(lookUpFailure(*queue, server().sftp().root())->code(),
              FileSystem::FailureCode::ConnectionLost);
}

} // namespace

} // namespace TarnisTest
