#include "support/AsyncSshServer.h"

#include "support/DeprecatedLibssh.h"
#include "support/PseudoRandom.h"
#include "support/RequireServer.h"
#include "support/ScriptedSftp.h"
#include "support/selftest/SftpClient.h"

#include <gtest/gtest.h>

namespace TarnisTest {
namespace {

class AsyncSshServerTest : public testing::Test
{
protected:
    void SetUp() override { (void)requireServer(AsyncSshServer::availability()); }
};

TEST_F(AsyncSshServerTest, RunsCommandsForItsKey)
{
    const AsyncSshServer server;
    SshCommand command(server.port(), server.user());
    const CommandResult result =
        command.withKey(server.clientKey()).withInput("in\n").run("pwd; cat; echo err >&2; exit 5");
    EXPECT_EQ(result.output, server.root() + "\nin\n") << server.log();
    EXPECT_EQ(result.errorOutput, "err\n");
    EXPECT_EQ(result.status.code, 5);
}

TEST_F(AsyncSshServerTest, DeniesAnyOtherKey)
{
    const TemporaryDirectory directory;
    const KeyPair stranger = generateKey(directory, "stranger");
    const AsyncSshServer server;
    SshCommand command(server.port(), server.user());
    EXPECT_EQ(command.withKey(stranger).run("echo in").status.code, 255);
}

TEST_F(AsyncSshServerTest, ServesItsDirectory)
{
    const AsyncSshServer server;
    const SftpClient client(server.port(), server.user(), server.clientKey());
    ASSERT_TRUE(client.isReady()) << server.log();
    const std::string content = pseudoRandomBytes(7, 100'000);
    EXPECT_TRUE(client.put("file", content)) << server.log();
    EXPECT_EQ(readFile(server.root() + "/file"), content);
    EXPECT_EQ(client.get(server.root() + "/file"), content);
    EXPECT_EQ(client.list("."), (std::vector<std::string>{".", "..", "file"}));
}

TEST_F(AsyncSshServerTest, ShowsItsHostKeyAndVersion)
{
    AsyncSshOptions options;
    options.version = "OpenSSH_10.0";
    const AsyncSshServer server(options);
    ClientSession session(server.port(), server.user());
    ASSERT_TRUE(session.logIn(server.clientKey())) << server.log();
    EXPECT_STREQ(ssh_get_serverbanner(session.get()), "SSH-2.0-OpenSSH_10.0");
    const TemporaryDirectory directory;
    const std::string knownHosts =
        directory.write("known_hosts", "[127.0.0.1]:" + std::to_string(server.port()) +
                                           " ssh-ed25519 " + server.hostPublicKeyBase64() + "\n");
    ssh_options_set(session.get(), SSH_OPTIONS_KNOWNHOSTS, knownHosts.c_str());
    EXPECT_EQ(ssh_session_is_known_server(session.get()), SSH_KNOWN_HOSTS_OK);
}

TEST_F(AsyncSshServerTest, LetsAnotherProgramServeSftp)
{
    const ScriptedSftp sftp;
    AsyncSshOptions options;
    options.sftpCommand = sftp.command();
    const AsyncSshServer server(options);
    const SftpClient client(server.port(), server.user(), server.clientKey());
    ASSERT_TRUE(client.isReady()) << server.log();
    const std::string content = pseudoRandomBytes(8, 300'000);
    EXPECT_TRUE(client.put("file", content)) << server.log();
    EXPECT_EQ(client.get(sftp.path("file")), content);
    EXPECT_GT(sftp.requestCount(SftpPacket::Read), 0U);
    SshCommand command(server.port(), server.user());
    EXPECT_EQ(command.withKey(server.clientKey()).run("exit 6").status.code, 6);
}

TEST_F(AsyncSshServerTest, PassesSignalsOn)
{
    const AsyncSshServer server;
    ClientSession session(server.port(), server.user());
    ASSERT_TRUE(session.logIn(server.clientKey())) << server.log();
    ClientChannel channel(session);
    ASSERT_TRUE(channel.open());
    ASSERT_TRUE(channel.execute(
        "trap 'echo caught; exit 3' TERM; echo ready; while :; do sleep 0.01; done"));
    std::string line(6, '\0');
    ASSERT_EQ(ssh_channel_read(channel.get(), line.data(), 6, 0), 6);
    EXPECT_EQ(ssh_channel_request_send_signal(channel.get(), "TERM"), SSH_OK);
    EXPECT_EQ(channel.readAll(), "caught\n");
    EXPECT_EQ(Deprecated::exitStatus(channel.get()), 3);
}

TEST_F(AsyncSshServerTest, EchoesWithoutAnEndOfFile)
{
    AsyncSshOptions options;
    options.echoes = true;
    const AsyncSshServer server(options);
    SshCommand command(server.port(), server.user());
    const CommandResult result =
        command.withKey(server.clientKey()).withInput("back").run("whatever");
    EXPECT_EQ(result.output, "back") << server.log();
    EXPECT_EQ(result.errorOutput, "back");
    EXPECT_EQ(result.status.code, 7);
}

TEST_F(AsyncSshServerTest, EndsWithItsObject)
{
    std::unique_ptr<ChildProcess> client;
    {
        const AsyncSshServer server;
        SshCommand command(server.port(), server.user());
        client = command.withKey(server.clientKey()).start("echo ready; sleep 1000");
        ASSERT_TRUE(waitUntil([&] { return !client->output().empty(); })) << server.log();
    }
    EXPECT_EQ(client->wait()->code, 255);
}

} // namespace
} // namespace TarnisTest
