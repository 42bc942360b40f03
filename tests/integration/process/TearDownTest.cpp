// Taking sessions and processes apart, in every order and whatever the server is up to: nothing
// may touch freed memory, and nothing may take longer than a second.

#include "integration/process/ProcessTest.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <future>
#include <tuple>
#include <vector>

namespace TarnisTest {

namespace {

using std::chrono::milliseconds;

enum class ServerState
{
    Alive,
    Killed,
    Stopped,
    StoppedWithAFullSocket
};

enum class Order
{
    ProcessesFirst,
    SessionFirst,
    DisconnectThenProcesses,
    DisconnectThenSession,
    SilentDisconnectThenProcesses,
    SilentDisconnectThenSession,
    CloseThenSession,
    InterruptThenProcesses
};

std::string nameOf(ServerState state)
{
    switch (state) {
    case ServerState::Alive:
        return "Alive";
    case ServerState::Killed:
        return "Killed";
    case ServerState::Stopped:
        return "Stopped";
    case ServerState::StoppedWithAFullSocket:
        return "StoppedWithAFullSocket";
    }
    return "Unknown";
}

std::string nameOf(Order how)
{
    switch (how) {
    case Order::ProcessesFirst:
        return "ProcessesFirst";
    case Order::SessionFirst:
        return "SessionFirst";
    case Order::DisconnectThenProcesses:
        return "DisconnectThenProcesses";
    case Order::DisconnectThenSession:
        return "DisconnectThenSession";
    case Order::SilentDisconnectThenProcesses:
        return "SilentDisconnectThenProcesses";
    case Order::SilentDisconnectThenSession:
        return "SilentDisconnectThenSession";
    case Order::CloseThenSession:
        return "CloseThenSession";
    case Order::InterruptThenProcesses:
        return "InterruptThenProcesses";
    }
    return "Unknown";
}

class TearDownTest : public OpenSshSessionTest
{
protected:
    void SetUp() override
    {
        OpenSshSessionTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        for (int number = 0; number < 4; ++number) {
            processes_.push_back(startProcess(session(), "cat >/dev/null"));
        }
        processes_.push_back(startProcess(session(), "echo unread; echo unread >&2; cat"));
        processes_.push_back(startProcess(session(), "exit 3"));
        ASSERT_TRUE(processes_.back()->waitForFinished(kGenerousLimit));
        processes_.push_back(session().createProcess("not started"));
    }

    void bringServerTo(ServerState state)
    {
        switch (state) {
        case ServerState::Alive:
            break;
        case ServerState::Killed:
            server().killAll();
            break;
        case ServerState::Stopped:
            server().suspendAll();
            break;
        case ServerState::StoppedWithAFullSocket:
            server().suspendAll();
            fillSocket();
            break;
        }
    }

    static void promptly(const char* what, const std::function<void()>& action)
    {
        EXPECT_TRUE(returnsWithinASecond(action)) << what;
    }

    void destroyProcesses()
    {
        while (!processes_.empty()) {
            promptly("destroying a process", [this] { processes_.pop_back(); });
        }
    }

    void destroySession()
    {
        promptly("destroying the session", [this] { dropSession(); });
    }

    void closeProcesses()
    {
        for (const auto& process : processes_) {
            if (process->isOpen()) {
                process->close();
            }
        }
    }

private:
    /// Writes until neither the windows of the four nor the socket take any more.
    void fillSocket()
    {
        const std::string data(kMebibyte, 'x');
        for (std::size_t index = 0; index < 4; ++index) {
            while (processes_.at(index)
                       ->writeSome(data.data(), data.size(), milliseconds(20))
                       .status == Status::Transferred) {
            }
        }
    }

    std::vector<std::unique_ptr<Tarnis::SSHProcess>> processes_;
};

class TearDownOrderTest : public TearDownTest,
                          public ::testing::WithParamInterface<std::tuple<Order, ServerState>>
{
protected:
    void tearDown(Order how)
    {
        switch (how) {
        case Order::ProcessesFirst:
        case Order::SessionFirst:
            break;
        case Order::DisconnectThenProcesses:
        case Order::DisconnectThenSession:
            promptly("disconnecting", [this] { session().disconnect(); });
            break;
        case Order::SilentDisconnectThenProcesses:
        case Order::SilentDisconnectThenSession:
            promptly("silently disconnecting", [this] { session().silentDisconnect(); });
            break;
        case Order::CloseThenSession:
            closeUnlessTheServerIsStopped();
            break;
        case Order::InterruptThenProcesses:
            promptly("interrupting", [this] { session().interrupt(); });
            break;
        }
    }

    static bool takesTheSessionFirst(Order how)
    {
        return how == Order::SessionFirst || how == Order::DisconnectThenSession ||
               how == Order::SilentDisconnectThenSession || how == Order::CloseThenSession;
    }

private:
    // close() is the one call here that waits for the network.
    void closeUnlessTheServerIsStopped()
    {
        const ServerState state = std::get<ServerState>(GetParam());
        if (state == ServerState::Alive || state == ServerState::Killed) {
            closeProcesses();
        }
    }
};

TEST_P(TearDownOrderTest, IsSafeAndPrompt)
{
    const auto [how, state] = GetParam();
    bringServerTo(state);
    tearDown(how);
    if (takesTheSessionFirst(how)) {
        destroySession();
        destroyProcesses();
    } else {
        destroyProcesses();
        destroySession();
    }
    if (state == ServerState::Alive) {
        EXPECT_TRUE(waitUntil([&] { return server().connectionProcessCount() == 0; }))
            << "the server still has the connection";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Parts, TearDownOrderTest,
    ::testing::Combine(
        ::testing::Values(Order::ProcessesFirst, Order::SessionFirst,
                          Order::DisconnectThenProcesses, Order::DisconnectThenSession,
                          Order::SilentDisconnectThenProcesses, Order::SilentDisconnectThenSession,
                          Order::CloseThenSession, Order::InterruptThenProcesses),
        ::testing::Values(ServerState::Alive, ServerState::Killed, ServerState::Stopped,
                          ServerState::StoppedWithAFullSocket)),
    [](const auto& order) {
        return nameOf(std::get<0>(order.param)) + "With" + nameOf(std::get<1>(order.param));
    });

class TearDownUnderExecuteTest : public TearDownTest,
                                 public ::testing::WithParamInterface<ServerState>
{
protected:
    void SetUp() override
    {
        TearDownTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        const std::string path = directory_.file("running");
        executed_ = std::async(std::launch::async, [this, path] {
            return session().execute("touch " + path + "; exec cat >/dev/null",
                                     std::string(64 * kMebibyte, 'x'));
        });
        ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(path); }));
    }

    void expectExecuteToEndPromptly()
    {
        ASSERT_EQ(executed_.wait_for(kPromptly), std::future_status::ready);
        const auto result = executed_.get();
        EXPECT_TRUE(result.outcome == Outcome::ConnectionLost ||
                    result.outcome == Outcome::Completed)
            << describe(result);
    }

private:
    TemporaryDirectory directory_;
    std::future<Tarnis::SSHExecuteResult> executed_;
};

TEST_P(TearDownUnderExecuteTest, ByDisconnectIsSafeAndPrompt)
{
    bringServerTo(GetParam());
    promptly("disconnecting", [this] { session().disconnect(); });
    expectExecuteToEndPromptly();
    destroyProcesses();
    destroySession();
}

TEST_P(TearDownUnderExecuteTest, BySilentDisconnectIsSafeAndPrompt)
{
    bringServerTo(GetParam());
    promptly("silently disconnecting", [this] { session().silentDisconnect(); });
    expectExecuteToEndPromptly();
    destroySession();
    destroyProcesses();
}

TEST_P(TearDownUnderExecuteTest, ByInterruptIsSafeAndPrompt)
{
    bringServerTo(GetParam());
    promptly("interrupting", [this] { session().interrupt(); });
    expectExecuteToEndPromptly();
    destroyProcesses();
    destroySession();
}

INSTANTIATE_TEST_SUITE_P(Execute, TearDownUnderExecuteTest,
                         ::testing::Values(ServerState::Alive, ServerState::Killed,
                                           ServerState::Stopped,
                                           ServerState::StoppedWithAFullSocket),
                         [](const auto& state) { return nameOf(state.param); });

class TearDownFromOtherThreadsTest : public TearDownTest
{};

TEST_F(TearDownFromOtherThreadsTest, OfProcessesWhileTheSessionDisconnectsIsSafe)
{
    std::atomic<bool> go{false};
    auto destroying = std::async(std::launch::async, [&] {
        while (!go) {
        }
        destroyProcesses();
    });
    go = true;
    promptly("disconnecting", [this] { session().disconnect(); });
    destroying.get();
    destroySession();
}

TEST_F(TearDownFromOtherThreadsTest, OfAProcessLeavesTheOthersAlone)
{
    auto leaving = startProcess(session(), "cat");
    const auto staying = startProcess(session(), "cat");
    leaving.reset();
    EXPECT_TRUE(writeAll(*staying, "still here"));
    EXPECT_EQ(readExactly(*staying, 10, standardOutput), "still here");
}

TEST_F(TearDownFromOtherThreadsTest, OfAProcessWhoseInputWaitsStillSendsIt)
{
    const TemporaryDirectory directory;
    const std::string path = directory.file("received");
    const std::string data(1'000'000, 'd');
    auto process = startProcess(session(), "cat >" + path);
    EXPECT_TRUE(writeAll(*process, data));
    process.reset();
    EXPECT_TRUE(waitUntil([&] {
        static_cast<void>(session().execute("true"));
        return readFile(path) == data;
    }));
}

} // namespace

} // namespace TarnisTest
