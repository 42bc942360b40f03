// Ctrl-C while a remote command runs.

#include "support/PasswordSshServer.h"
#include "support/RequireServer.h"
#include "support/ScriptedServer.h"
#include "tool/ToolTest.h"

#include <atomic>
#include <csignal>

namespace TarnisTest {
namespace {

/// A remote command that does not end by itself, and notes the signals that it is sent.
class ExecInterruptTest : public ToolTest
{
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        ScriptedPolicy policy;
        policy.run = [this](ScriptedChannel& channel) {
            channel.writeOutput("begun\n");
            for (int i = 0; i < signalsToEnd_; ++i) {
                channel.writeOutput(channel.waitForSignal() + "\n");
            }
            channel.finish(11);
        };
        server_ = std::make_unique<ScriptedServer>(policy);
    }

    std::unique_ptr<ToolRun> startCommand(const ToolSetup& setup) const
    {
        auto tool = start(setup);
        EXPECT_TRUE(tool->waitForOutput("begun\n")) << tool->errorOutput();
        return tool;
    }

    // Read by the server's thread.
    std::atomic<int> signalsToEnd_{1000};
    std::unique_ptr<ScriptedServer> server_;
};

TEST_F(ExecInterruptTest, FirstInterruptAsksTheCommandToEnd)
{
    signalsToEnd_ = 1;
    const auto tool = startCommand(exec(server_->port(), "x"));
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 11);
    EXPECT_EQ(tool->output(), "begun\nTERM\n");
}

TEST_F(ExecInterruptTest, SecondInterruptKillsTheCommand)
{
    signalsToEnd_ = 2;
    const auto tool = startCommand(exec(server_->port(), "x"));
    tool->signal(SIGINT);
    ASSERT_TRUE(tool->waitForOutput("TERM\n"));
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 11);
    EXPECT_EQ(tool->output(), "begun\nTERM\nKILL\n");
}

TEST_F(ExecInterruptTest, ThirdInterruptEndsTheProgram)
{
    const auto tool = startCommand(exec(server_->port(), "x"));
    tool->signal(SIGINT);
    ASSERT_TRUE(tool->waitForOutput("TERM\n"));
    tool->signal(SIGINT);
    ASSERT_TRUE(tool->waitForOutput("KILL\n"));
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 255);
}

TEST_F(ExecInterruptTest, ThirdInterruptEndsTheProgramThoughTheServerHangs)
{
    const auto tool = startCommand(exec(server_->port(), "x"));
    server_->freeze();
    for (int i = 0; i < 3; ++i) {
        // One that is still pending when the next one comes is lost: so is a user's.
        tool->signal(SIGINT);
        if (tool->wait(std::chrono::milliseconds(300)) >= 0) {
            break;
        }
    }
    EXPECT_EQ(tool->wait(), 255);
}

TEST_F(ExecInterruptTest, ControlCAtTheTerminalDoesTheSame)
{
    signalsToEnd_ = 1;
    ToolSetup setup = exec(server_->port(), "x");
    setup.hasTerminal = true;
    setup.inputKind = Input::Terminal;
    const auto tool = startCommand(setup);
    tool->type("\x03");
    EXPECT_EQ(tool->wait(), 11);
    EXPECT_EQ(tool->output(), "begun\nTERM\n");
}

TEST_F(ExecInterruptTest, IgnoresInterruptsWhenStartedThatWay)
{
    ScriptedPolicy policy;
    policy.run = [](ScriptedChannel& channel) {
        channel.writeOutput("begun\n");
        channel.discardInputToEnd();
        channel.finish(12);
    };
    const ScriptedServer server(policy);
    ToolSetup setup = exec(server.port(), "x");
    setup.ignoresInterrupts = true;
    setup.inputKind = Input::Pipe;
    const auto tool = startCommand(setup);
    for (int i = 0; i < 3; ++i) {
        tool->signal(SIGINT);
    }
    tool->endInput();
    EXPECT_EQ(tool->wait(), 12);
    EXPECT_EQ(server.events().count(ServerEvent::Kind::Signal), 0U);
}

TEST_F(ExecInterruptTest, EndsARealCommandOfARealServer)
{
    if (!requireServer(PasswordSshServer::availability())) {
        return;
    }
    const PasswordSshServer server;
    const std::uint16_t port = server.port(Login::Password);
    trust(port, server.hostKey().publicBase64);
    ToolSetup setup;
    setup.arguments = {"exec", target(port, server.user()),  "--password-env", "SECRET",
                       "--",   "echo begun; exec sleep 1000"};
    setup.environment = {"SECRET=" + server.password()};
    const auto tool = startCommand(setup);
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 255);
    EXPECT_THAT(tool->errorOutput(), testing::HasSubstr("was ended by the signal TERM"));
}

} // namespace
} // namespace TarnisTest
