#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"
#include "support/HomeOverride.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <libssh/libssh.h>

#include <memory>
#include <string_view>
#include <vector>

#include <pwd.h>
#include <unistd.h>

namespace TarnisTest {

using namespace Tarnis;
using namespace std::string_literals;

namespace {

std::string localUser()
{
    return ::getpwuid(::getuid())->pw_name;
}

TEST(SessionOptions, AreLibsshsDefaultsAtFirst)
{
    SSHSession session;
    EXPECT_EQ(session.getHostName(), "");
    EXPECT_EQ(session.getUserName(), "");
    EXPECT_EQ(session.getPortNumber(), 22);
    EXPECT_EQ(session.getKnownHostsFile(), "");
    EXPECT_EQ(session.getLastError(), "");
}

TEST(SessionOptions, ReadBackAsTheyWereSet)
{
    SSHSession session;
    EXPECT_TRUE(session.setHostName("host.example"));
    EXPECT_TRUE(session.setUserName("alice"));
    EXPECT_TRUE(session.setPortNumber(65535));
    EXPECT_TRUE(session.setKnownHostsFile("/nowhere/known_hosts"));
    EXPECT_EQ(session.getHostName(), "host.example");
    EXPECT_EQ(session.getUserName(), "alice");
    EXPECT_EQ(session.getPortNumber(), 65535);
    EXPECT_EQ(session.getKnownHostsFile(), "/nowhere/known_hosts");
}

TEST(SessionOptions, CanBeSetAgain)
{
    SSHSession session;
    for (const std::string text : {"first", "second", "a-longer-third"}) {
        EXPECT_TRUE(session.setHostName(text));
        EXPECT_TRUE(session.setUserName(text));
        EXPECT_TRUE(session.setKnownHostsFile(text));
        EXPECT_EQ(session.getHostName(), text);
        EXPECT_EQ(session.getUserName(), text);
        EXPECT_EQ(session.getKnownHostsFile(), text);
    }
}

TEST(SessionOptions, TakeTheUserOutOfAHostNameThatNamesOne)
{
    SSHSession session;
    EXPECT_TRUE(session.setHostName("bob@host.example"));
    EXPECT_EQ(session.getHostName(), "host.example");
    EXPECT_EQ(session.getUserName(), "bob");
}

TEST(SessionOptions, TakeAnAddressInsteadOfAHostName)
{
    SSHSession session;
    EXPECT_TRUE(session.setHostName("192.0.2.1"));
    EXPECT_EQ(session.getHostName(), "192.0.2.1");
    EXPECT_TRUE(session.setHostName("[2001:db8::1]"));
    EXPECT_EQ(session.getHostName(), "2001:db8::1");
}

/// Values that can be no host name, user name or path.
class RefusedOption : public ::testing::TestWithParam<std::string>
{};

TEST_P(RefusedOption, LeavesTheHostNameAsItWas)
{
    SSHSession session;
    ASSERT_TRUE(session.setHostName("host.example"));
    EXPECT_FALSE(session.setHostName(GetParam()));
    EXPECT_EQ(session.getHostName(), "host.example");
}

TEST_P(RefusedOption, LeavesTheUserNameAsItWas)
{
    SSHSession session;
    ASSERT_TRUE(session.setUserName("alice"));
    EXPECT_FALSE(session.setUserName(GetParam()));
    EXPECT_EQ(session.getUserName(), "alice");
}

TEST_P(RefusedOption, LeavesTheKnownHostsFileAsItWas)
{
    SSHSession session;
    ASSERT_TRUE(session.setKnownHostsFile("/nowhere/known_hosts"));
    EXPECT_FALSE(session.setKnownHostsFile(GetParam()));
    EXPECT_EQ(session.getKnownHostsFile(), "/nowhere/known_hosts");
}

INSTANTIATE_TEST_SUITE_P(Values, RefusedOption,
                         ::testing::Values(""s, "\0"s, "name\0hidden"s, "name\0"s));

TEST(SessionOptions, RefuseAHostNameThatNamesAPort)
{
    SSHSession session;
    ASSERT_TRUE(session.setHostName("host.example"));
    EXPECT_FALSE(session.setHostName("other.example:2222"));
    EXPECT_EQ(session.getHostName(), "host.example");
    EXPECT_EQ(session.getPortNumber(), 22);
}

TEST(SessionOptions, RefuseAHostNameWithShellCharacters)
{
    SSHSession session;
    EXPECT_FALSE(session.setHostName("host;id"));
    EXPECT_FALSE(session.setHostName("$(id)"));
    EXPECT_FALSE(session.setHostName("two words"));
    EXPECT_EQ(session.getHostName(), "");
}

TEST(SessionOptions, RefuseAUserNameWithShellCharactersAndChangeNothing)
{
    SSHSession session;
    EXPECT_FALSE(session.setUserName("user;id"));
    EXPECT_EQ(session.getUserName(), "");
    ASSERT_TRUE(session.setUserName("alice"));
    for (const char* const name : {"user;id", "-oOption", "'quoted'", "`id`", "$(id)", "a -b"}) {
        EXPECT_FALSE(session.setUserName(name));
        EXPECT_EQ(session.getUserName(), "alice");
    }
}

TEST(SessionOptions, RefuseAHostNameWhoseUserNameHasShellCharactersAndChangeNothing)
{
    SSHSession session;
    ASSERT_TRUE(session.setHostName("alice@host.example"));
    for (const char* const name : {"user;id@other", "-oOption@other", "a`id`@other", "a\\@other"}) {
        EXPECT_FALSE(session.setHostName(name));
        EXPECT_EQ(session.getUserName(), "alice");
        EXPECT_EQ(session.getHostName(), "host.example");
    }
}

/// What libssh itself says of a user name.
bool libsshTakes(const std::string& name)
{
    const std::unique_ptr<ssh_session_struct, decltype(&ssh_free)> plain(ssh_new(), ssh_free);
    return ssh_options_set(plain.get(), SSH_OPTIONS_USER, name.c_str()) == SSH_OK;
}

/// Names with one byte at each place that matters, which `isRefused` says of.
struct OddName
{
    std::string name;
    bool isRefused;
};

std::vector<OddName> namesWith(char c)
{
    const bool isOfShells = "'`\";&<>|(){}$\\,"s.find(c) != std::string::npos;
    const bool isSpace = " \t\n\v\f\r"s.find(c) != std::string::npos;
    return {{{'a', c, 'b'}, isOfShells},
            {{'a', c}, isOfShells},
            {{c, 'b'}, isOfShells || c == '-'},
            {{'a', c, '-'}, isOfShells || isSpace}};
}

TEST(SessionOptions, RefuseTheSameUserNamesWhateverLibsshDoes)
{
    // Older versions take every name.
    const bool libsshChecks = !libsshTakes("user;id");
    for (int byte = 1; byte < 256; ++byte) {
        for (const auto& [name, isRefused] : namesWith(static_cast<char>(byte))) {
            SSHSession session;
            EXPECT_EQ(session.setUserName(name), !isRefused) << byte << ' ' << name;
            EXPECT_EQ(session.getUserName(), isRefused ? "" : name);
            EXPECT_TRUE(!libsshChecks || libsshTakes(name) == !isRefused) << byte << ' ' << name;
        }
    }
}

TEST(SessionOptions, RefusePortZero)
{
    SSHSession session;
    EXPECT_FALSE(session.setPortNumber(0));
    EXPECT_EQ(session.getPortNumber(), 22);
    ASSERT_TRUE(session.setPortNumber(2222));
    EXPECT_FALSE(session.setPortNumber(0));
    EXPECT_EQ(session.getPortNumber(), 2222);
}

TEST(SessionOptions, AreFilledInByConnect)
{
    const ScriptedServer server;
    SSHSession session;
    ASSERT_TRUE(session.setHostName(kLoopback));
    ASSERT_TRUE(session.setPortNumber(server.port()));
    ASSERT_TRUE(session.connect()) << session.getLastError();
    EXPECT_EQ(session.getUserName(), localUser());
    EXPECT_EQ(session.getKnownHostsFile(), homeDirectory() + "/.ssh/known_hosts");
}

TEST(SessionOptions, UnderstandATildeInTheKnownHostsPath)
{
    const ScriptedServer server;
    SSHSession session;
    address(session, server.port(), "anybody");
    ASSERT_TRUE(session.setKnownHostsFile("~/elsewhere"));
    ASSERT_TRUE(session.connect()) << session.getLastError();
    EXPECT_EQ(session.getKnownHostsFile(), homeDirectory() + "/elsewhere");
}

TEST(SessionOptions, KeepAPortThatWasSetWhileConnectedForTheNextConnect)
{
    const ScriptedServer first;
    const ScriptedServer second;
    SSHSession session;
    address(session, first.port(), "anybody");
    ASSERT_TRUE(connectTrusting(session));
    ASSERT_TRUE(session.setPortNumber(second.port()));
    EXPECT_TRUE(session.isConnected());
    EXPECT_EQ(second.connectionCount(), 0U);

    ASSERT_TRUE(session.disconnect());
    ASSERT_TRUE(connectTrusting(session));
    EXPECT_EQ(second.connectionCount(), 1U);
    EXPECT_EQ(first.connectionCount(), 1U);
}

TEST(SessionOptions, LogInWithTheUserNameThatWasSet)
{
    const ScriptedServer server;
    SSHSession session;
    ASSERT_TRUE(session.setPortNumber(server.port()));
    ASSERT_TRUE(session.setHostName("carol@"s + kLoopback));
    ASSERT_TRUE(connectTrusting(session)) << session.getLastError();
    EXPECT_EQ(authenticate(session, UserAuthenticatorPassword(ScriptedPolicy::kPassword)),
              AuthenticateUserResult::Success);
    const auto attempts = server.events().ofKind(ServerEvent::Kind::Authentication);
    ASSERT_FALSE(attempts.empty());
    EXPECT_EQ(attempts.back().user, "carol");
}

/// What a host attaches is its own; its class is of no interest here.
class AttachedInterface
{
public:
    SSHSessionInterface* get() { return reinterpret_cast<SSHSessionInterface*>(this); }
};

TEST(SessionInterface, MayBeAttachedAndTakenAwayAtAnyTime)
{
    const ScriptedServer server;
    AttachedInterface attached;
    SSHSession session;
    address(session, server.port(), "anybody");

    session.attachSSHSessionInterface(nullptr);
    session.attachSSHSessionInterface(attached.get());
    ASSERT_TRUE(connectTrusting(session)) << session.getLastError();
    session.attachSSHSessionInterface(nullptr);
    EXPECT_EQ(authenticate(session, UserAuthenticatorPassword(ScriptedPolicy::kPassword)),
              AuthenticateUserResult::Success);
    session.attachSSHSessionInterface(attached.get());
    EXPECT_TRUE(session.disconnect());
    EXPECT_TRUE(session.connect()) << session.getLastError();
}

} // namespace

} // namespace TarnisTest
