#include "support/PasswordSshServer.h"

#include "support/RequireServer.h"
#include "support/selftest/SshClient.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <system_error>

namespace TarnisTest {
namespace {

class PasswordSshServerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (requireServer(PasswordSshServer::availability())) {
            server_ = std::make_unique<PasswordSshServer>();
        }
    }

    // What a login with the key and this password gives.
    CommandResult runWithBoth(Login login, const std::string& password) const
    {
        SshCommand command(server_->port(login), server_->user());
        return command.withKey(server_->clientKey()).withPassword(password).run("echo in");
    }

    std::unique_ptr<PasswordSshServer> server_;
};

TEST_F(PasswordSshServerTest, LetsThePasswordInAndNoOther)
{
    for (const Login login : {Login::Password, Login::KeyboardInteractive}) {
        SshCommand right(server_->port(login), server_->user());
        EXPECT_EQ(right.withPassword(server_->password()).run("echo in").output, "in\n")
            << server_->log();
        SshCommand wrong(server_->port(login), server_->user());
        const CommandResult denied = wrong.withPassword("wrong").run("echo in");
        EXPECT_EQ(denied.status.code, 255);
        EXPECT_EQ(denied.output, "");
    }
}

TEST_F(PasswordSshServerTest, AsksForBothKeyAndPassword)
{
    for (const Login login : {Login::KeyThenPassword, Login::KeyThenKeyboardInteractive}) {
        EXPECT_EQ(runWithBoth(login, server_->password()).output, "in\n") << server_->log();
        EXPECT_EQ(runWithBoth(login, "wrong").status.code, 255);
        SshCommand passwordAlone(server_->port(login), server_->user());
        EXPECT_EQ(passwordAlone.withPassword(server_->password()).run("echo in").status.code, 255);
        SshCommand keyAlone(server_->port(login), server_->user());
        keyAlone.withKey(server_->clientKey()).withOption("BatchMode=yes");
        EXPECT_EQ(keyAlone.run("echo in").status.code, 255);
    }
}

TEST_F(PasswordSshServerTest, LetsAUserWithoutPasswordInWithNothing)
{
    SshCommand guest(server_->port(Login::EmptyPassword), server_->userWithoutPassword());
    EXPECT_EQ(guest.withOption("BatchMode=yes").run("echo in").output, "in\n") << server_->log();
    SshCommand other(server_->port(Login::EmptyPassword), server_->user());
    EXPECT_EQ(other.withOption("BatchMode=yes").run("echo in").status.code, 255);
}

TEST_F(PasswordSshServerTest, AsksOnePromptOverKeyboardInteractive)
{
    ClientSession session(server_->port(Login::KeyboardInteractive), server_->user());
    ASSERT_EQ(session.connect(), SSH_OK);
    ASSERT_EQ(ssh_userauth_kbdint(session.get(), nullptr, nullptr), SSH_AUTH_INFO);
    EXPECT_EQ(ssh_userauth_kbdint_getnprompts(session.get()), 1);
    EXPECT_EQ(ssh_userauth_kbdint_setanswer(session.get(), 0, server_->password().c_str()), 0);
    int rc = ssh_userauth_kbdint(session.get(), nullptr, nullptr);
    while (rc == SSH_AUTH_INFO) { // a round without prompts may follow
        rc = ssh_userauth_kbdint(session.get(), nullptr, nullptr);
    }
    EXPECT_EQ(rc, SSH_AUTH_SUCCESS) << server_->log();
}

TEST_F(PasswordSshServerTest, RunsCommandsAsNobodyInTheInventedHome)
{
    SshCommand command(server_->port(Login::Password), server_->user());
    const std::string output = command.withPassword(server_->password()).run("id -un; pwd").output;
    EXPECT_EQ(output.rfind("nobody\n", 0), 0U) << output;
    EXPECT_NE(output.find("/home\n"), std::string::npos) << output;
}

TEST(PasswordSshServer, LeavesNothingOfTheWrapperBehind)
{
    if (!requireServer(PasswordSshServer::availability())) {
        return;
    }
    std::string ourDirectory;
    {
        PasswordSshServer server;
        ourDirectory = std::filesystem::path(server.hostKey().privatePath).parent_path();
        SshCommand command(server.port(Login::Password), server.user());
        const auto client = command.withPassword(server.password()).start("echo ready; sleep 1000");
        ASSERT_TRUE(waitUntil([&] { return !client->output().empty(); })) << server.log();
        server.killConnections();
        EXPECT_EQ(client->wait()->code, 255);
    }
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        const auto service = entry.path() / "sshd";
        std::error_code error;
        if (std::filesystem::is_regular_file(service, error)) {
            EXPECT_EQ(readFile(service).find(ourDirectory), std::string::npos) << service;
        }
    }
}

} // namespace
} // namespace TarnisTest
