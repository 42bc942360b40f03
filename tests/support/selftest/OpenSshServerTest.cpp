#include "support/OpenSshServer.h"

#include "support/RequireServer.h"
#include "support/selftest/SshClient.h"

#include <gtest/gtest.h>

namespace TarnisTest {
namespace {

class OpenSshServerTest : public testing::Test
{
protected:
    void SetUp() override { (void)requireServer(OpenSshServer::availability()); }
};

// Runs one command with the key that the server knows.
CommandResult run(const OpenSshServer& server, const std::string& command)
{
    return SshCommand(server.port(), server.user()).withKey(server.clientKey()).run(command);
}

// A connection that stays open until it is broken, seen from the server.
std::unique_ptr<ChildProcess> connectForLong(const OpenSshServer& server)
{
    SshCommand command(server.port(), server.user());
    auto client = command.withKey(server.clientKey()).start("echo ready; sleep 1000");
    EXPECT_TRUE(waitUntil([&] { return client->output() == "ready\n"; })) << server.log();
    return client;
}

// The host key that the server shows, as libssh sees it.
std::string shownHostKey(const OpenSshServer& server)
{
    ClientSession session(server.port());
    if (session.connect() != SSH_OK) {
        return ssh_get_error(session.get());
    }
    ssh_key key = nullptr;
    ssh_get_server_publickey(session.get(), &key);
    char* text = nullptr;
    ssh_pki_export_pubkey_base64(key, &text);
    std::string base64 = text;
    ssh_string_free_char(text);
    ssh_key_free(key);
    return base64;
}

TEST_F(OpenSshServerTest, RunsCommandsForItsKey)
{
    const OpenSshServer server;
    const CommandResult result = run(server, "echo out; echo err >&2; exit 5");
    EXPECT_EQ(result.output, "out\n") << server.log();
    EXPECT_EQ(result.errorOutput, "err\n");
    EXPECT_EQ(result.status.code, 5);
}

TEST_F(OpenSshServerTest, DeniesAnyOtherKey)
{
    const TemporaryDirectory directory;
    const KeyPair stranger = generateKey(directory, "stranger");
    const OpenSshServer server;
    const CommandResult result =
        SshCommand(server.port(), server.user()).withKey(stranger).run("echo in");
    EXPECT_EQ(result.status.code, 255);
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.errorOutput.find("Permission denied"), std::string::npos);
}

TEST_F(OpenSshServerTest, AcceptsFurtherAuthorizedKeys)
{
    const TemporaryDirectory directory;
    const KeyPair other = generateKey(directory, "other", KeyType::Ecdsa);
    OpenSshOptions options;
    options.authorizedKeys = {other.publicLine};
    const OpenSshServer server(options);
    const CommandResult result =
        SshCommand(server.port(), server.user()).withKey(other).run("echo in");
    EXPECT_EQ(result.output, "in\n") << server.log();
}

TEST_F(OpenSshServerTest, ShowsTheHostKeyOfItsType)
{
    for (const KeyType type : {KeyType::Ed25519, KeyType::Ecdsa, KeyType::Rsa}) {
        OpenSshOptions options;
        options.hostKeyTypes = {type};
        const OpenSshServer server(options);
        EXPECT_EQ(shownHostKey(server), server.hostPublicKeyBase64(type));
    }
}

TEST_F(OpenSshServerTest, GivesCommandsAHomeOfTheirOwn)
{
    const OpenSshServer server;
    const std::string home = run(server, "echo $HOME").output;
    EXPECT_NE(home.find("/tarnis-test-"), std::string::npos) << home;
}

TEST_F(OpenSshServerTest, ObeysForcedCommandAndExtraLines)
{
    OpenSshOptions options;
    options.forceCommand = "echo \"forced $SSH_ORIGINAL_COMMAND $EXTRA\"";
    options.extraLines = {"AcceptEnv EXTRA"};
    const OpenSshServer server(options);
    const CommandResult result = SshCommand(server.port(), server.user())
                                     .withKey(server.clientKey())
                                     .withOption("SetEnv=EXTRA=value")
                                     .run("wish");
    EXPECT_EQ(result.output, "forced wish value\n") << server.log();
}

TEST_F(OpenSshServerTest, ReportsAConfigurationThatItRejects)
{
    OpenSshOptions options;
    options.extraLines = {"NoSuchOption yes"};
    try {
        const OpenSshServer server(options);
        FAIL() << "the server came up";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("NoSuchOption"), std::string::npos);
    }
}

TEST_F(OpenSshServerTest, AllowsNoMoreSessionsThanAskedFor)
{
    OpenSshOptions options;
    options.maxSessions = 1;
    const OpenSshServer server(options);
    ClientSession session(server.port(), server.user());
    ASSERT_EQ(session.connect(), SSH_OK);
    ssh_key key = nullptr;
    ASSERT_EQ(ssh_pki_import_privkey_file(server.clientKey().privatePath.c_str(), nullptr, nullptr,
                                          nullptr, &key),
              SSH_OK);
    EXPECT_EQ(ssh_userauth_publickey(session.get(), nullptr, key), SSH_AUTH_SUCCESS);
    ssh_key_free(key);
    ClientChannel first(session);
    ClientChannel second(session);
    EXPECT_TRUE(first.open());
    EXPECT_FALSE(second.open());
}

TEST_F(OpenSshServerTest, CountsAndKillsItsConnections)
{
    OpenSshServer server;
    EXPECT_EQ(server.connectionProcessCount(), 0U);
    const auto first = connectForLong(server);
    const auto second = connectForLong(server);
    EXPECT_EQ(server.connectionProcessCount(), 2U);
    server.killConnections();
    EXPECT_EQ(first->wait()->code, 255);
    EXPECT_EQ(second->wait()->code, 255);
    EXPECT_TRUE(waitUntil([&] { return server.connectionProcessCount() == 0; }));
    EXPECT_EQ(run(server, "echo still there").output, "still there\n");
}

TEST_F(OpenSshServerTest, FreezesAndThaws)
{
    OpenSshServer server;
    SshCommand command(server.port(), server.user());
    const auto client =
        command.withKey(server.clientKey()).start("echo ready; while sleep 0.01; do echo; done");
    ASSERT_TRUE(waitUntil([&] { return !client->output().empty(); })) << server.log();
    server.suspendAll();
    std::size_t size = 0;
    // What was on its way still arrives; then nothing does.
    EXPECT_TRUE(waitUntil([&] {
        const std::size_t former = std::exchange(size, client->output().size());
        return !waitUntil([&] { return client->output().size() != former; },
                          std::chrono::milliseconds(100));
    }));
    EXPECT_TRUE(client->isRunning());
    server.resumeAll();
    EXPECT_TRUE(waitUntil([&] { return client->output().size() > size; }));
}

TEST_F(OpenSshServerTest, ComesBackOnTheSamePortWithOtherHostKeys)
{
    OpenSshServer server;
    const std::uint16_t port = server.port();
    const std::string former = server.hostPublicKeyBase64();
    EXPECT_EQ(shownHostKey(server), former);
    server.restartWithNewHostKeys();
    EXPECT_EQ(server.port(), port);
    EXPECT_NE(server.hostPublicKeyBase64(), former);
    EXPECT_EQ(shownHostKey(server), server.hostPublicKeyBase64());
}

TEST_F(OpenSshServerTest, EndsWithEverythingItStarted)
{
    for (const bool kill : {false, true}) {
        OpenSshServer server;
        const auto client = connectForLong(server);
        kill ? server.killAll() : server.stop();
        EXPECT_EQ(client->wait()->code, 255);
        EXPECT_FALSE(run(server, "echo in").succeeded());
        server.start();
        EXPECT_EQ(run(server, "echo back").output, "back\n") << server.log();
    }
}

} // namespace
} // namespace TarnisTest
