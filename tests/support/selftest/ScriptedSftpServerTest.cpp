#include "support/ScriptedSftpServer.h"

#include "support/PseudoRandom.h"
#include "support/RequireServer.h"
#include "support/selftest/SftpClient.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

// The scripted server behind a real sshd, used by real clients.

namespace TarnisTest {
namespace {

using namespace SftpActions;

class ScriptedSftpServerTest : public testing::Test
{
protected:
    void SetUp() override { (void)requireServer(ScriptedSftpServer::availability()); }
};

SftpClient connectTo(const ScriptedSftpServer& server)
{
    return {server.ssh().port(), server.ssh().user(), server.ssh().clientKey()};
}

CommandResult runBatch(const ScriptedSftpServer& server, const std::string& batch)
{
    SshCommand client(server.ssh().port(), server.ssh().user());
    return client.withKey(server.ssh().clientKey()).runSftp(batch);
}

TEST_F(ScriptedSftpServerTest, ServesOpenSshsClient)
{
    const TemporaryDirectory local;
    const std::string content = pseudoRandomBytes(5, 3'000'000);
    const std::string source = local.write("source", content);
    const ScriptedSftpServer server;
    const CommandResult result = runBatch(server, "pwd\n"
                                                  "mkdir dir\n"
                                                  "put -p " +
                                                      source +
                                                      " dir/a\n"
                                                      "chmod 640 dir/a\n"
                                                      "rename dir/a dir/b\n"
                                                      "ln -s b dir/link\n"
                                                      "get dir/link " +
                                                      local.file("copy") +
                                                      "\n"
                                                      "mkdir dir/gone\n"
                                                      "rmdir dir/gone\n"
                                                      "rm dir/link\n"
                                                      "ls -la dir\n"
                                                      "df\n");
    EXPECT_TRUE(result.succeeded()) << result.errorOutput << server.ssh().log();
    EXPECT_NE(result.output.find("Remote working directory: " + server.sftp().root()),
              std::string::npos)
        << result.output;
    EXPECT_EQ(readFile(local.file("copy")), content);
    EXPECT_EQ(readFile(server.sftp().path("dir/b")), content);

    struct stat info
    {};

    ASSERT_EQ(::stat(server.sftp().path("dir/b").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0640U);
    EXPECT_FALSE(std::filesystem::exists(server.sftp().path("dir/gone")));
    EXPECT_FALSE(std::filesystem::exists(server.sftp().path("dir/link")));
}

TEST_F(ScriptedSftpServerTest, ServesLibssh)
{
    const ScriptedSftpServer server;
    const SftpClient client = connectTo(server);
    ASSERT_TRUE(client.isReady()) << server.ssh().log();
    const std::string content = pseudoRandomBytes(6, 100'000);
    EXPECT_TRUE(client.put(server.sftp().path("file"), content));
    EXPECT_EQ(client.get(server.sftp().path("file")), content);
    EXPECT_EQ(sftp_symlink(client.get(), "file", server.sftp().path("link").c_str()), 0);
    EXPECT_EQ(client.linkTarget(server.sftp().path("link")), "file");
    EXPECT_EQ(client.list("."), (std::vector<std::string>{".", "..", "file", "link"}));
    EXPECT_EQ(sftp_extension_supported(client.get(), "statvfs@openssh.com", "2"), 1);
}

TEST_F(ScriptedSftpServerTest, SetsTheTimesThatTheProtocolCanExpress)
{
    const ScriptedSftpServer server;
    const SftpClient client = connectTo(server);
    ASSERT_TRUE(client.isReady()) << server.ssh().log();
    ASSERT_TRUE(client.put(server.sftp().path("file"), "text"));
    sftp_attributes_struct times{};
    times.flags = SSH_FILEXFER_ATTR_ACMODTIME;
    times.atime = 1'000'000'000;
    times.mtime = 1'100'000'000;
    EXPECT_EQ(sftp_setstat(client.get(), server.sftp().path("file").c_str(), &times), 0);

    struct stat info
    {};

    ASSERT_EQ(::stat(server.sftp().path("file").c_str(), &info), 0);
    EXPECT_EQ(info.st_atim.tv_sec, 1'000'000'000);
    EXPECT_EQ(info.st_mtim.tv_sec, 1'100'000'000);
}

TEST_F(ScriptedSftpServerTest, ShowsRequestsInFlight)
{
    SftpScript script;
    script.order = SftpOrder::Reversed;
    script.heldReplies = 4;
    const ScriptedSftpServer server(script);
    const SftpClient client = connectTo(server);
    ASSERT_TRUE(client.isReady()) << server.ssh().log();
    ASSERT_TRUE(client.put(server.sftp().path("file"), std::string(100, 'x')));
    // One at a time: each waits for the server to lose its patience.
    EXPECT_EQ(client.get(server.sftp().path("file")).size(), 100U);
    EXPECT_EQ(server.sftp().mostInFlight(SftpPacket::Read), 1U);
    // OpenSSH's client keeps many in flight for a long file.
    const TemporaryDirectory local;
    ASSERT_EQ(::truncate(server.sftp().path("file").c_str(), 1'000'000), 0);
    EXPECT_TRUE(runBatch(server, "get file " + local.file("copy") + "\n").succeeded());
    EXPECT_GE(server.sftp().mostInFlight(SftpPacket::Read), 4U);
    EXPECT_EQ(readFile(local.file("copy")), readFile(server.sftp().path("file")));
}

TEST_F(ScriptedSftpServerTest, TakesANewScriptInTheMiddleOfASession)
{
    const ScriptedSftpServer server;
    const SftpClient client = connectTo(server);
    ASSERT_TRUE(client.isReady()) << server.ssh().log();
    EXPECT_FALSE(client.list(".").empty());
    SftpScript script;
    script.rules = {{every(SftpPacket::Opendir), refuse(SftpStatus::PermissionDenied)}};
    server.sftp().setScript(script);
    EXPECT_TRUE(client.list(".").empty());
    EXPECT_EQ(sftp_get_error(client.get()), SSH_FX_PERMISSION_DENIED);
    server.sftp().setScript({});
    EXPECT_FALSE(client.list(".").empty());
}

TEST_F(ScriptedSftpServerTest, GoesOnWithANewScriptAfterItStopped)
{
    for (const SftpAction& stop : {stopAnswering(), stopReading()}) {
        SftpScript script;
        script.rules = {{nth(SftpPacket::Opendir, 1), stop}};
        const ScriptedSftpServer server(script);
        SshCommand command(server.ssh().port(), server.ssh().user());
        // The server answers while the client waits.
        const auto client = command.withKey(server.ssh().clientKey()).startSftp("ls -a\n");
        EXPECT_TRUE(
            waitUntil([&] { return server.sftp().requestCount(SftpPacket::Opendir) == 1; }));
        EXPECT_TRUE(client->isRunning());
        server.sftp().setScript({});
        const auto status = client->wait();
        ASSERT_TRUE(status.has_value());
        EXPECT_TRUE(status->succeeded()) << client->errorOutput();
        EXPECT_NE(client->output().find(".."), std::string::npos) << client->output();
    }
}

TEST_F(ScriptedSftpServerTest, EndsTheChannelAndNotTheConnection)
{
    SftpScript script;
    script.rules = {{nth(SftpPacket::Lstat, 2), SftpActions::exit()}};
    const ScriptedSftpServer server(script);
    const SftpClient client = connectTo(server);
    ASSERT_TRUE(client.isReady()) << server.ssh().log();
    const sftp_attributes first = sftp_lstat(client.get(), ".");
    EXPECT_NE(first, nullptr);
    sftp_attributes_free(first);
    EXPECT_EQ(sftp_lstat(client.get(), "."), nullptr);
    EXPECT_EQ(ssh_is_connected(client.session()), 1);
}

} // namespace
} // namespace TarnisTest
