// `tarnis doctor`: what it finds, and what it advises.

#include "support/OpenSshServer.h"
#include "support/RequireServer.h"
#include "support/ScriptedServer.h"
#include "support/ScriptedSftpServer.h"
#include "tool/ToolTest.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <tuple>

namespace TarnisTest {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class DoctorTest : public ToolTest
{
protected:
    /// A visit with the password at hand.
    ToolResult examine(std::uint16_t port, const std::vector<std::string>& options = {}) const
    {
        ToolSetup setup;
        setup.arguments = {"doctor", target(port), "--password-env", "SECRET"};
        setup.arguments.insert(setup.arguments.end(), options.begin(), options.end());
        setup.environment = {std::string("SECRET=") + ScriptedPolicy::kPassword};
        return run(setup);
    }

    ToolResult examine(const ScriptedServer& server,
                       const std::vector<std::string>& options = {}) const
    {
        trust(server.port(), ScriptedServer::hostPublicKeyBase64());
        return examine(server.port(), options);
    }

    /// The report has a line for this step that goes on like that.
    static void expectLine(const ToolResult& result, const std::string& step,
                           const std::string& rest)
    {
        EXPECT_THAT(result.output, ContainsRegex("\n  " + step + " +" + rest));
    }

    /// Every step up to this one went well, this one did not, and the rest was left alone.
    static void expectFailureAt(const std::string& failed, const ToolResult& result)
    {
        expectFailureUpTo(failed, result);
        expectLine(result, "files", "- +not tried");
    }

    /// The same, but a server without commands may still transfer files.
    static void expectFailureUpTo(const std::string& failed, const ToolResult& result)
    {
        EXPECT_EQ(result.exitCode, 1);
        std::string verdict = "ok +[0-9.]+ ms";
        for (const char* const step : {"name", "connect", "host key", "login", "command"}) {
            if (step == failed) {
                expectLine(result, step, "FAILED +[0-9.]+ ms");
                verdict = "- +not tried";
            } else {
                expectLine(result, step, verdict);
            }
        }
    }
};

ScriptedPolicy policyWith(std::function<void(ScriptedChannel&)> script)
{
    ScriptedPolicy policy;
    policy.run = std::move(script);
    return policy;
}

TEST_F(DoctorTest, FindsEverythingInOrder)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    const OpenSshServer server;
    trust(server.port(), server.hostPublicKeyBase64());
    const ToolResult result = run({"doctor", target(server.port(), server.user()), "--identity",
                                   server.clientKey().privatePath});
    EXPECT_EQ(result.exitCode, 0) << result.output << result.errorOutput;
    EXPECT_EQ(result.errorOutput, "");
    const std::string good = "ok +[0-9]+.[0-9] ms  ";
    expectLine(result, "name", good + "127.0.0.1\n");
    expectLine(result, "connect", good + "port ");
    expectLine(result, "host key", good + "ssh-ed25519 SHA256:.*, known\n");
    expectLine(result, "login", good + server.user() + "; key .*: accepted\n");
    expectLine(result, "command", good + "the shell runs commands\n");
    expectLine(result, "files",
               good + "SFTP; the login directory has 0 entries, [0-9.]+ .?B free of [0-9.]+ .?B\n");
    EXPECT_THAT(result.output, HasSubstr(server.hostKey().fingerprint));
    EXPECT_THAT(result.output, Not(HasSubstr("\x1b"))) << "there is no terminal to colour";
}

TEST_F(DoctorTest, WritesOnlyWhenAsked)
{
    if (!requireServer(ScriptedSftpServer::availability())) {
        return;
    }
    const ScriptedSftpServer server;
    trust(server.ssh().port(), server.ssh().hostPublicKeyBase64());
    std::vector<std::string> arguments{"doctor", target(server.ssh().port(), server.ssh().user()),
                                       "--identity", server.ssh().clientKey().privatePath};
    EXPECT_EQ(run(arguments).exitCode, 0);
    EXPECT_EQ(server.sftp().requestCount(SftpPacket::Open), 0U);
    arguments.emplace_back("--write");
    const ToolResult result = run(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_THAT(result.output, HasSubstr("a file was written, read back and removed"));
    EXPECT_EQ(server.sftp().requestCount(SftpPacket::Write), 1U);
    EXPECT_TRUE(std::filesystem::is_empty(server.sftp().root()));
    SftpScript full;
    full.diskSpace = 0;
    server.sftp().setScript(full);
    EXPECT_EQ(run(arguments).exitCode, 1);
    EXPECT_TRUE(std::filesystem::is_empty(server.sftp().root()));
    SftpScript fullAtTheEnd;
    fullAtTheEnd.rules = {{every(SftpPacket::Close), SftpActions::refuse(SftpStatus::Failure)}};
    server.sftp().setScript(fullAtTheEnd);
    const ToolResult refused = run(arguments);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.output, HasSubstr("cannot write a file on "));
    EXPECT_TRUE(std::filesystem::is_empty(server.sftp().root()));
}

TEST_F(DoctorTest, TellsAServerWithoutSessionsFromOneWithoutFileTransfer)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    OpenSshOptions withoutSessions;
    withoutSessions.maxSessions = 0;
    OpenSshOptions withoutFiles;
    withoutFiles.sftpCommand = "/bin/false";
    const std::string why = "cannot start file transfer with [^ ]*: the server ";
    for (const auto& [options, reason, advice] :
         {std::tuple(withoutSessions,
                     "opens no session for it \\(Channel opening failure[^\n]*\\)\n",
                     "The server lets the user in but opens no session"),
          std::tuple(withoutFiles, "does not offer SFTP", "The server has no SFTP subsystem")}) {
        const OpenSshServer server(options);
        trust(server.port(), server.hostPublicKeyBase64());
        const ToolResult result = run({"doctor", target(server.port(), server.user()), "--identity",
                                       server.clientKey().privatePath});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.output, testing::ContainsRegex(why + reason));
        EXPECT_THAT(result.output, HasSubstr(advice));
    }
}

TEST_F(DoctorTest, LooksAtFilesWhereNoCommandsRun)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    OpenSshOptions filesOnly;
    const TemporaryDirectory loginDirectory;
    filesOnly.forceCommand = "internal-sftp -d " + loginDirectory.path().string();
    const OpenSshServer server(filesOnly);
    trust(server.port(), server.hostPublicKeyBase64());
    const ToolResult result = run({"doctor", target(server.port(), server.user()), "--identity",
                                   server.clientKey().privatePath});
    EXPECT_EQ(result.exitCode, 1);
    expectLine(result, "command", "FAILED");
    expectLine(result, "files", "ok");
}

TEST_F(DoctorTest, LooksAtFilesOnAConnectionOfItsOwnWhereThatIsNeeded)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    const TemporaryDirectory directory;
    const std::string onePerConnection = "mark=" + directory.path().string() +
                                         "/$(echo $SSH_CONNECTION | tr ' :' '__')\n" +
                                         "[ -e $mark ] && exit 1\n: > $mark\n";
    const std::string noneAfterACommand =
        "case $SSH_ORIGINAL_COMMAND in *sftp*) ;; *) echo tarnis; kill -9 $PPID; exit ;; esac\n";
    for (const std::string& limit : {onePerConnection, noneAfterACommand}) {
        const std::string script = directory.write(
            "limit", "#!/bin/sh\n" + limit + "exec sh -c \"$SSH_ORIGINAL_COMMAND\"\n", 0700);
        OpenSshOptions options;
        options.forceCommand = script;
        options.sftpCommand = "/usr/lib/openssh/sftp-server";
        const OpenSshServer server(options);
        trust(server.port(), server.hostPublicKeyBase64());
        const ToolResult result = run({"doctor", target(server.port(), server.user()), "--identity",
                                       server.clientKey().privatePath});
        expectLine(result, "files", "ok");
        EXPECT_THAT(result.output, HasSubstr("on a connection of its own"));
    }
}

TEST_F(DoctorTest, ALineEndBehindACommandIsNoStartUpFilesOutput)
{
    for (const char* const output : {"tarnis\n\n", "tarnis\r\n", "tarnis"}) {
        const ScriptedServer server(policyWith([output](ScriptedChannel& channel) {
            channel.writeOutput(output);
            channel.finish(0);
        }));
        expectLine(examine(server), "command", "ok +[0-9.]+ ms +the shell runs commands\n");
    }
}

TEST_F(DoctorTest, ClosesWhatItWroteBeforeItReads)
{
    if (!requireServer(ScriptedSftpServer::availability())) {
        return;
    }
    const ScriptedSftpServer server;
    trust(server.ssh().port(), server.ssh().hostPublicKeyBase64());
    const ToolResult result =
        run({"doctor", "--write", target(server.ssh().port(), server.ssh().user()), "--identity",
             server.ssh().clientKey().privatePath});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(server.sftp().requestCount(SftpPacket::Open), 2U);
    EXPECT_EQ(server.sftp().requestCount(SftpPacket::Close), 3U) << "those, and the listing";
}

TEST_F(DoctorTest, NamesTheSignalThatEndedItsCommand)
{
    const ScriptedServer server(policyWith([](ScriptedChannel& channel) {
        channel.sendExitSignal("KILL");
        channel.sendEof();
        channel.close();
    }));
    EXPECT_THAT(examine(server).output, HasSubstr("the signal KILL ended it"));
}

TEST_F(DoctorTest, ReportsAsJson)
{
    ScriptedPolicy policy;
    policy.channelRequest = [](const ServerEvent&) { return Answer::Refuse; };
    const ScriptedServer server(policy);
    const ToolResult result = examine(server, {"--json"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.errorOutput, "");
    const auto report = nlohmann::json::parse(result.output);
    EXPECT_EQ(report["host"], "127.0.0.1");
    EXPECT_EQ(report["port"], server.port());
    EXPECT_EQ(report["ok"], false);
    ASSERT_EQ(report["steps"].size(), 6U);
    const auto& login = report["steps"][3];
    EXPECT_EQ(login["name"], "login");
    EXPECT_EQ(login["status"], "ok");
    EXPECT_TRUE(login["milliseconds"].is_number());
    EXPECT_THAT(login["finding"].get<std::string>(), HasSubstr("password: accepted"));
    const auto& command = report["steps"][4];
    EXPECT_EQ(command["status"], "failed");
    EXPECT_THAT(command["problem"].get<std::string>(), HasSubstr("cannot run a command on"));
    EXPECT_THAT(command["advice"].get<std::string>(), HasSubstr("file transfer only"));
    const RefusingPort port;
    const auto refused = nlohmann::json::parse(examine(port.number(), {"--json"}).output);
    EXPECT_EQ(refused["steps"][5]["status"], "skipped");
    EXPECT_FALSE(refused["steps"][5].contains("milliseconds"));
}

TEST_F(DoctorTest, ColoursItsVerdictsAtATerminal)
{
    ToolSetup setup;
    setup.arguments = {"doctor", "no-such-host.invalid"};
    setup.hasTerminal = true;
    setup.outputsToTerminal = true;
    const auto tool = start(setup);
    EXPECT_TRUE(tool->waitForScreen("\x1b[31mFAILED\x1b[0m"));
    EXPECT_EQ(tool->wait(), 1);
    setup.environment = {"NO_COLOR=1"};
    const auto plain = start(setup);
    EXPECT_TRUE(plain->waitForScreen("  name      FAILED"));
    EXPECT_EQ(plain->wait(), 1);
    EXPECT_THAT(plain->screen(), Not(HasSubstr("\x1b")));
}

TEST_F(DoctorTest, AdvisesOnAnUnknownHostName)
{
    const ToolResult result = run({"doctor", "no-such-host.invalid"});
    expectFailureAt("name", result);
    EXPECT_THAT(result.output, HasSubstr("Check the spelling of no-such-host.invalid"));
}

TEST_F(DoctorTest, AdvisesOnARefusedConnection)
{
    const RefusingPort port;
    const ToolResult result = examine(port.number());
    expectFailureAt("connect", result);
    EXPECT_THAT(result.output, HasSubstr("Connection refused"));
    EXPECT_THAT(result.output,
                HasSubstr("no server listens on port " + std::to_string(port.number()) + ". "));
}

TEST_F(DoctorTest, AdvisesOnAServerThatDoesNotAnswer)
{
    ScriptedPolicy policy;
    policy.handshake = Handshake::SendNothing;
    const ScriptedServer server(policy);
    const ToolResult result = examine(server, {"--connect-timeout", "1"});
    expectFailureAt("connect", result);
    EXPECT_THAT(result.output, HasSubstr("no answer within 1 seconds"));
    EXPECT_THAT(result.output, HasSubstr("a firewall drops the connection"));
}

TEST_F(DoctorTest, AdvisesOnAServerThatHangsUp)
{
    ScriptedPolicy policy;
    policy.handshake = Handshake::CloseAtOnce;
    const ScriptedServer server(policy);
    const ToolResult result = examine(server);
    expectFailureAt("connect", result);
    EXPECT_THAT(result.output, HasSubstr("does not speak SSH"));
}

TEST_F(DoctorTest, AdvisesOnAnUnknownServer)
{
    const ScriptedServer server;
    const ToolResult result = examine(server.port());
    expectFailureAt("host key", result);
    EXPECT_THAT(result.output, HasSubstr(ScriptedServer::hostKeyFingerprint()));
    EXPECT_THAT(result.output, HasSubstr("--host-key-policy new"));
}

TEST_F(DoctorTest, AdvisesOnAChangedHostKey)
{
    const ScriptedServer server;
    trust(server.port(), "AAAAC3NzaC1lZDI1NTE5AAAAIAABAgMEBQYHCAkKCwwNDg8QERITFBUWFxgZGhscHR4f");
    const ToolResult result =
        examine(server.port(), {"--known-hosts", knownHostsFile(), "--host-key-policy", "known"});
    expectFailureAt("host key", result);
    EXPECT_THAT(result.output,
                HasSubstr("ssh-keygen -R '[127.0.0.1]:" + std::to_string(server.port()) + "' -f '" +
                          knownHostsFile() + "'"));
}

TEST_F(DoctorTest, AdvisesOnADeniedLogin)
{
    ScriptedPolicy policy;
    policy.authenticate = [](const ServerEvent&) { return AuthReply::deny(); };
    const ScriptedServer server(policy);
    const ToolResult result = examine(server);
    expectFailureAt("login", result);
    EXPECT_THAT(result.output, HasSubstr("agent and default keys: denied; password: denied"));
    EXPECT_THAT(result.output, HasSubstr("Check the user name (tester)"));
    EXPECT_THAT(result.output, Not(HasSubstr(ScriptedPolicy::kPassword)));
}

TEST_F(DoctorTest, AdvisesOnKeyboardInteractiveOnly)
{
    ScriptedPolicy policy;
    policy.offeredMethods = {AuthMethod::KeyboardInteractive};
    const ScriptedServer server(policy);
    const ToolResult result = examine(server);
    expectFailureAt("login", result);
    EXPECT_THAT(result.output, HasSubstr("does not answer keyboard-interactive questions"));
}

TEST_F(DoctorTest, AdvisesOnAServerWithoutCommands)
{
    ScriptedPolicy policy;
    policy.channelRequest = [](const ServerEvent&) { return Answer::Refuse; };
    const ScriptedServer server(policy);
    const ToolResult result = examine(server);
    expectFailureUpTo("command", result);
    expectLine(result, "files", "FAILED");
    EXPECT_THAT(result.output, HasSubstr("the account is for file transfer only"));
    EXPECT_THAT(result.output, HasSubstr("Subsystem sftp internal-sftp"));
}

TEST_F(DoctorTest, AdvisesOnAShellThatRefuses)
{
    const ScriptedServer server(policyWith([](ScriptedChannel& channel) {
        channel.writeOutput("This account is \x1b[31mnot available.\n");
        channel.finish(1);
    }));
    const ToolResult result = examine(server);
    expectFailureUpTo("command", result);
    EXPECT_THAT(result.output, HasSubstr("exit code 1, it says \"This account is ?[31mnot avail"));
}

TEST_F(DoctorTest, WarnsOfAShellThatTalks)
{
    const ScriptedServer server(policyWith([](ScriptedChannel& channel) {
        channel.writeOutput("Welcome!\ntarnis\n");
        channel.finish(0);
    }));
    const ToolResult result = examine(server);
    EXPECT_EQ(result.exitCode, 1);
    expectLine(result, "files", "FAILED");
    EXPECT_THAT(result.output, HasSubstr("disturbs file transfer: \"Welcome! tarnis\""));
}

TEST_F(DoctorTest, ReportsAConnectionThatBreaks)
{
    const ScriptedServer server(
        policyWith([](ScriptedChannel& channel) { channel.dropConnection(); }));
    const ToolResult result = examine(server);
    expectFailureUpTo("command", result);
    EXPECT_THAT(result.output, HasSubstr("The connection broke."));
    // Files may work all the same, on another connection.
    expectLine(result, "files", "FAILED");
    EXPECT_EQ(server.events().count(ServerEvent::Kind::Connected), 2U);
}

} // namespace
} // namespace TarnisTest
