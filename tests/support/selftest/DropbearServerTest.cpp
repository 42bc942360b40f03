#include "support/DropbearServer.h"

#include "support/DeprecatedLibssh.h"
#include "support/RequireServer.h"
#include "support/selftest/SftpClient.h"

#include <gtest/gtest.h>

#include <memory>

namespace TarnisTest {
namespace {

class DropbearServerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (requireServer(DropbearServer::availability())) {
            server_ = std::make_unique<DropbearServer>();
        }
    }

    std::unique_ptr<DropbearServer> server_;
};

TEST_F(DropbearServerTest, LetsKeyAndPasswordIn)
{
    SshCommand withKey(server_->port(), server_->user());
    const CommandResult result =
        withKey.withKey(server_->clientKey()).run("echo out; echo err >&2; exit 4");
    EXPECT_EQ(result.output, "out\n") << server_->log();
    EXPECT_EQ(result.errorOutput, "err\n");
    EXPECT_EQ(result.status.code, 4);
    SshCommand withPassword(server_->port(), server_->user());
    EXPECT_EQ(withPassword.withPassword(server_->password()).run("echo in").output, "in\n")
        << server_->log();
}

TEST_F(DropbearServerTest, DeniesAWrongPassword)
{
    SshCommand command(server_->port(), server_->user());
    EXPECT_EQ(command.withPassword("wrong").run("echo in").status.code, 255);
}

TEST_F(DropbearServerTest, ShowsItsHostKey)
{
    SshCommand command(server_->port(), server_->user());
    const TemporaryDirectory directory;
    const std::string knownHosts =
        directory.write("known_hosts", "[127.0.0.1]:" + std::to_string(server_->port()) +
                                           " ssh-ed25519 " + server_->hostPublicKeyBase64() + "\n");
    ClientSession session(server_->port(), server_->user());
    ssh_options_set(session.get(), SSH_OPTIONS_KNOWNHOSTS, knownHosts.c_str());
    ASSERT_EQ(session.connect(), SSH_OK);
    EXPECT_EQ(ssh_session_is_known_server(session.get()), SSH_KNOWN_HOSTS_OK);
}

TEST_F(DropbearServerTest, ServesTheHomeDirectory)
{
    const SftpClient client(server_->port(), server_->user(), server_->clientKey());
    ASSERT_TRUE(client.isReady()) << server_->log();
    EXPECT_TRUE(client.put("file", "content")) << server_->log();
    EXPECT_EQ(readFile(server_->homeDirectory() + "/file"), "content");
    EXPECT_EQ(client.get(server_->homeDirectory() + "/file"), "content");
}

// The property that makes this server worth having in the tests.
TEST_F(DropbearServerTest, SendsTheExitStatusAfterTheEndOfTheOutput)
{
    ClientSession session(server_->port(), server_->user());
    ASSERT_TRUE(session.logIn(server_->password())) << server_->log();
    ClientChannel channel(session);
    ASSERT_TRUE(channel.open());
    ASSERT_TRUE(channel.execute("exec >&- 2>&-; sleep 0.2; exit 6"));
    EXPECT_EQ(channel.readAll(), "");
    EXPECT_EQ(ssh_channel_is_eof(channel.get()), 1);
    EXPECT_EQ(Deprecated::exitStatus(channel.get()), 6);
}

} // namespace
} // namespace TarnisTest
