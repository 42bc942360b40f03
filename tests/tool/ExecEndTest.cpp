// How `tarnis exec` ends: the exit codes of commands, and those of its own.

#include "support/DropbearServer.h"
#include "support/OpenSshServer.h"
#include "support/RequireServer.h"
#include "support/ScriptedServer.h"
#include "tool/ToolTest.h"

namespace TarnisTest {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class ExecEndTest : public ToolTest
{
protected:
    /// Runs a command that a script plays.
    ToolResult runScript(std::function<void(ScriptedChannel&)> script,
                         const std::vector<std::string>& options = {}) const
    {
        ScriptedPolicy policy;
        policy.run = std::move(script);
        const ScriptedServer server(policy);
        ToolSetup setup = exec(server.port(), "scripted", options);
        // A user whose key is recorded hears nothing about it.
        setup.arguments.insert(setup.arguments.begin() + 2, {"--known-hosts", "/dev/null"});
        return run(setup);
    }
};

/// The lines that are about the command, without the one about the host key.
std::string withoutRecording(const std::string& errorOutput)
{
    const auto end = errorOutput.find('\n');
    return errorOutput.find("record") < end ? errorOutput.substr(end + 1) : errorOutput;
}

TEST_F(ExecEndTest, PassesEveryExitCodeOn)
{
    for (const int code : {0, 1, 2, 42, 127, 254, 255}) {
        EXPECT_EQ(runScript([=](ScriptedChannel& channel) { channel.finish(code); }).exitCode,
                  code);
    }
}

TEST_F(ExecEndTest, NeverTurnsALargeExitCodeIntoSuccess)
{
    EXPECT_EQ(runScript([](ScriptedChannel& channel) { channel.finish(256); }).exitCode, 255);
}

TEST_F(ExecEndTest, NamesTheSignalThatEndedTheCommand)
{
    const ToolResult result = runScript([](ScriptedChannel& channel) {
        channel.writeOutput("some");
        channel.sendExitSignal("SEGV");
        channel.sendEof();
        channel.close();
    });
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_EQ(result.output, "some");
    const std::string message = withoutRecording(result.errorOutput);
    EXPECT_THAT(message, StartsWith("tarnis: the command on tester@127.0.0.1:"));
    EXPECT_THAT(message, EndsWith(" was ended by the signal SEGV\n"));
    EXPECT_EQ(lineCount(message), 1U);
}

TEST_F(ExecEndTest, ASignalsNameCannotSteerTheTerminal)
{
    const ToolResult result = runScript([](ScriptedChannel& channel) {
        channel.sendExitSignal("X\x1b[2J");
        channel.sendEof();
        channel.close();
    });
    EXPECT_THAT(result.errorOutput, HasSubstr("ended by the signal X?[2J"));
}

TEST_F(ExecEndTest, DoesNotWaitForAnExitCodeThatNeverComes)
{
    const ToolResult result = runScript([](ScriptedChannel& channel) {
        channel.writeOutput("out");
        channel.sendEof();
        channel.close();
    });
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_EQ(result.output, "out");
    EXPECT_THAT(result.errorOutput, HasSubstr("without an exit code"));
}

TEST_F(ExecEndTest, TakesAChannelThatIsClosedWithoutAnEndOfFile)
{
    const ToolResult result = runScript([](ScriptedChannel& channel) {
        channel.writeOutput("out");
        channel.sendExitStatus(4);
        channel.close();
    });
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.output, "out");
}

TEST_F(ExecEndTest, WaitsForTheExitCodeAfterTheEndOfTheOutput)
{
    const ToolResult result = runScript([](ScriptedChannel& channel) {
        channel.writeOutput("out");
        channel.sendEof();
        // The client ends its input because it has none, and not because of the end of the output.
        channel.discardInputToEnd();
        channel.sendExitStatus(9);
        channel.close();
    });
    EXPECT_EQ(result.exitCode, 9);
    EXPECT_EQ(result.output, "out");
}

TEST_F(ExecEndTest, ReportsACommandThatTheServerRefuses)
{
    ScriptedPolicy policy;
    policy.channelRequest = [](const ServerEvent&) { return Answer::Refuse; };
    const ScriptedServer server(policy);
    const ToolResult result = run(exec(server.port(), "refused"));
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_THAT(withoutRecording(result.errorOutput),
                StartsWith("tarnis: cannot run the command on " + target(server.port()) + ": "));
}

TEST_F(ExecEndTest, ReportsALostConnection)
{
    const ToolResult result = runScript([](ScriptedChannel& channel) { channel.dropConnection(); });
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_THAT(withoutRecording(result.errorOutput),
                StartsWith("tarnis: lost the connection to tester@127.0.0.1:"));
}

TEST_F(ExecEndTest, ReportsARefusedConnection)
{
    const RefusingPort port;
    const ToolResult result = run(exec(port.number(), "true"));
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_EQ(result.errorOutput, "tarnis: cannot connect to " + target(port.number()) +
                                      ": nobody listens at this port (Connection refused)\n");
}

TEST_F(ExecEndTest, GivesUpConnectingWhenTheTimeIsOver)
{
    ScriptedPolicy policy;
    policy.handshake = Handshake::SendNothing;
    const ScriptedServer server(policy);
    const ToolResult result = run(exec(server.port(), "true", {"--connect-timeout", "1"}));
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_EQ(result.errorOutput, "tarnis: cannot connect to " + target(server.port()) +
                                      ": no answer within 1 seconds\n");
}

TEST_F(ExecEndTest, KillsACommandThatTakesTooLong)
{
    ScriptedPolicy policy;
    policy.run = [](ScriptedChannel& channel) {
        channel.writeOutput("begun");
        channel.waitForClose();
    };
    const ScriptedServer server(policy);
    const ToolResult result = run(exec(server.port(), "endless", {"--timeout", "1"}));
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_EQ(result.output, "begun");
    EXPECT_THAT(result.errorOutput, HasSubstr("it did not end within 1 seconds\n"));
    ASSERT_TRUE(server.events().waitFor(ServerEvent::Kind::Signal));
    EXPECT_EQ(server.events().ofKind(ServerEvent::Kind::Signal).front().text, "KILL");
}

TEST_F(ExecEndTest, GivesUpACommandThatIsNeverAnswered)
{
    ScriptedPolicy policy;
    policy.channelRequest = [](const ServerEvent&) { return Answer::Silence; };
    const ScriptedServer server(policy);
    const ToolResult result = run(exec(server.port(), "true", {"--timeout", "1"}));
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_THAT(result.errorOutput, HasSubstr("it did not end within 1 seconds\n"));
}

TEST_F(ExecEndTest, ReportsAServerThatLetsNobodyIn)
{
    ScriptedPolicy policy;
    policy.offeredMethods = {};
    policy.authenticate = [](const ServerEvent&) { return AuthReply::deny(); };
    const ScriptedServer server(policy);
    const ToolResult result = run(exec(server.port(), "true"));
    EXPECT_EQ(result.exitCode, 255);
    const std::string message = withoutRecording(result.errorOutput);
    EXPECT_THAT(message, StartsWith("tarnis: cannot log in to " + target(server.port()) + ": "));
    EXPECT_EQ(lineCount(message), 1U);
}

TEST_F(ExecEndTest, WaitsForABackgroundChildThatHoldsTheOutput)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    const OpenSshServer server;
    trust(server.port(), server.hostPublicKeyBase64());
    const ToolResult result =
        run({"exec", target(server.port(), server.user()), "-i", server.clientKey().privatePath,
             "--", "(sleep 0.3; echo later) & echo now; exit 3"});
    EXPECT_EQ(result.exitCode, 3) << result.errorOutput;
    EXPECT_EQ(result.output, "now\nlater\n");
}

TEST_F(ExecEndTest, KnowsTheExitCodeThatDropbearSendsLate)
{
    if (!requireServer(DropbearServer::availability())) {
        return;
    }
    const DropbearServer server;
    trust(server.port(), server.hostPublicKeyBase64());
    const ToolResult result =
        run({"exec", target(server.port(), server.user()), "-i", server.clientKey().privatePath,
             "--", "echo out; echo err >&2; exit 8"});
    EXPECT_EQ(result.exitCode, 8) << result.errorOutput;
    EXPECT_EQ(result.output, "out\n");
    EXPECT_EQ(result.errorOutput, "err\n");
}

} // namespace
} // namespace TarnisTest
