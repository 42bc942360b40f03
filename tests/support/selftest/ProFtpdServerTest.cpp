#include "support/ProFtpdServer.h"

#include "support/PseudoRandom.h"
#include "support/RequireServer.h"
#include "support/selftest/SftpClient.h"

#include <gtest/gtest.h>

namespace TarnisTest {
namespace {

class ProFtpdServerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (requireServer(ProFtpdServer::availability())) {
            server_ = std::make_unique<ProFtpdServer>();
        }
    }

    std::unique_ptr<ProFtpdServer> server_;
};

TEST_F(ProFtpdServerTest, ServesItsDirectory)
{
    const SftpClient client(server_->port(), server_->user(), server_->clientKey());
    ASSERT_TRUE(client.isReady()) << server_->log();
    const std::string content = pseudoRandomBytes(9, 100'000);
    EXPECT_TRUE(client.put(server_->remoteRoot() + "/file", content)) << server_->log();
    EXPECT_EQ(readFile(server_->root() + "/file"), content);
    EXPECT_EQ(client.get("file"), content);
    EXPECT_EQ(client.list(server_->remoteRoot()), (std::vector<std::string>{".", "..", "file"}));
    EXPECT_TRUE(client.put("file", "shorter"));
    EXPECT_EQ(readFile(server_->root() + "/file"), "shorter");
}

TEST_F(ProFtpdServerTest, LetsOneKeyInAndRunsNoCommands)
{
    const TemporaryDirectory directory;
    ClientSession stranger(server_->port(), server_->user());
    EXPECT_FALSE(stranger.logIn(generateKey(directory, "stranger")));
    ClientSession session(server_->port(), server_->user());
    ASSERT_TRUE(session.logIn(server_->clientKey())) << server_->log();
    ClientChannel channel(session);
    ASSERT_TRUE(channel.open());
    EXPECT_FALSE(channel.execute("echo in"));
}

TEST_F(ProFtpdServerTest, ShowsItsHostKey)
{
    ClientSession session(server_->port(), server_->user());
    const TemporaryDirectory directory;
    const std::string knownHosts =
        directory.write("known_hosts", "[127.0.0.1]:" + std::to_string(server_->port()) +
                                           " ssh-ed25519 " + server_->hostPublicKeyBase64() + "\n");
    ssh_options_set(session.get(), SSH_OPTIONS_KNOWNHOSTS, knownHosts.c_str());
    ASSERT_EQ(session.connect(), SSH_OK);
    EXPECT_EQ(ssh_session_is_known_server(session.get()), SSH_KNOWN_HOSTS_OK);
}

TEST_F(ProFtpdServerTest, KillsItsConnections)
{
    const SftpClient client(server_->port(), server_->user(), server_->clientKey());
    ASSERT_TRUE(client.isReady()) << server_->log();
    server_->killConnections();
    EXPECT_EQ(client.list("."), std::vector<std::string>{});
    const SftpClient another(server_->port(), server_->user(), server_->clientKey());
    EXPECT_TRUE(another.isReady()) << server_->log();
}

} // namespace
} // namespace TarnisTest
