#include "support/HomeOverride.h"

#include "support/KeyPair.h"
#include "support/ScriptedServer.h"
#include "support/selftest/SshClient.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include <pwd.h>
#include <unistd.h>

namespace TarnisTest {
namespace {

namespace fs = std::filesystem;

// Puts the home back, whatever the test does.
class HomeOverrideTest : public testing::Test
{
protected:
    ~HomeOverrideTest() override { setHomeDirectory(former_); }

    const std::string former_ = homeDirectory();
};

TEST_F(HomeOverrideTest, BeginsWithAnEmptyDirectory)
{
    EXPECT_TRUE(fs::is_directory(homeDirectory()));
    EXPECT_TRUE(fs::is_empty(homeDirectory()));
    EXPECT_STREQ(std::getenv("HOME"), homeDirectory().c_str());
}

TEST_F(HomeOverrideTest, LeavesNoAgentInTheEnvironment)
{
    EXPECT_EQ(std::getenv("SSH_AUTH_SOCK"), nullptr);
}

TEST_F(HomeOverrideTest, ChangesTheHomeAloneInTheUsersEntry)
{
    const TemporaryDirectory directory;
    setHomeDirectory(directory.path().string());
    const passwd* const entry = ::getpwuid(::getuid());
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(std::string(entry->pw_dir), directory.path().string());
    EXPECT_EQ(entry->pw_uid, ::getuid());
    EXPECT_NE(std::string(entry->pw_name), "");
}

TEST_F(HomeOverrideTest, LeavesOtherUsersAlone)
{
    const passwd* const nobody = ::getpwnam("nobody");
    ASSERT_NE(nobody, nullptr);
    const uid_t uid = nobody->pw_uid;
    const std::string home = nobody->pw_dir;
    if (uid != ::getuid()) {
        EXPECT_EQ(std::string(::getpwuid(uid)->pw_dir), home);
    }
}

TEST_F(HomeOverrideTest, HoldsTheDefaultKeysThatLibsshOffers)
{
    const TemporaryDirectory directory;
    setHomeDirectory(directory.path().string());
    directory.makeDirectory(".ssh");
    const KeyPair key = generateKey(directory, ".ssh/id_ed25519");
    const ScriptedServer server;
    ClientSession session(server.port());
    ASSERT_EQ(session.connect(), SSH_OK);
    EXPECT_EQ(ssh_userauth_publickey_auto(session.get(), nullptr, nullptr), SSH_AUTH_SUCCESS);
    EXPECT_EQ(server.events().ofKind(ServerEvent::Kind::Authentication).back().keyFingerprint,
              key.fingerprint);
}

TEST_F(HomeOverrideTest, IsEmptySoThatLibsshHasNoKeyToOffer)
{
    const ScriptedServer server;
    ClientSession session(server.port());
    ASSERT_EQ(session.connect(), SSH_OK);
    EXPECT_EQ(ssh_userauth_publickey_auto(session.get(), nullptr, nullptr), SSH_AUTH_DENIED);
    EXPECT_EQ(server.events().count(ServerEvent::Kind::Authentication), 0U);
}

// A server is known exactly when its key stands in the known-hosts file of the new home.
TEST_F(HomeOverrideTest, HoldsTheKnownHostsFileThatLibsshReads)
{
    const TemporaryDirectory directory;
    setHomeDirectory(directory.path().string());
    const ClientSession session(1);
    EXPECT_EQ(ssh_session_has_known_hosts_entry(session.get()), SSH_KNOWN_HOSTS_NOT_FOUND);
    directory.makeDirectory(".ssh");
    directory.write(".ssh/known_hosts",
                    "[127.0.0.1]:1 ssh-ed25519 "
                    "AAAAC3NzaC1lZDI1NTE5AAAAIOMqqnkVzrm0SdG6UOoqKLsabgH5C9okWi0dh2l9GKJl\n");
    EXPECT_EQ(ssh_session_has_known_hosts_entry(session.get()), SSH_KNOWN_HOSTS_OK);
}

} // namespace
} // namespace TarnisTest
