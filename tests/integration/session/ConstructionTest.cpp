// What the library asks of libssh before a connection is wanted: its calls pass through here.

#include "integration/session/SessionSteps.h"

#include <gtest/gtest.h>
#include <libssh/libssh.h>

#include <atomic>

#include <dlfcn.h>

namespace {

std::atomic<int> optionCalls{0};

} // namespace

extern "C" [[gnu::visibility("default")]] int
ssh_options_set(ssh_session session, enum ssh_options_e type, const void* value)
{
    ++optionCalls;
    static const auto next =
        reinterpret_cast<decltype(&ssh_options_set)>(::dlsym(RTLD_NEXT, "ssh_options_set"));
    return next(session, type, value);
}

namespace TarnisTest {

using namespace Tarnis;

namespace {

TEST(SessionConstruction, SetsNoOption)
{
    const int before = optionCalls;
    const SSHSession session;
    EXPECT_FALSE(session.isConnected());
    EXPECT_EQ(optionCalls, before);
}

TEST(SessionConstruction, IsFollowedByOneCallForEveryOptionThatIsSet)
{
    SSHSession session;
    const int before = optionCalls;
    EXPECT_TRUE(session.setHostName(kLoopback));
    EXPECT_EQ(optionCalls, before + 1);
    EXPECT_TRUE(session.setPortNumber(2222));
    EXPECT_EQ(optionCalls, before + 2);
    EXPECT_TRUE(session.setUserName("alice"));
    EXPECT_EQ(optionCalls, before + 3);
    EXPECT_TRUE(session.setKnownHostsFile("/nowhere"));
    EXPECT_EQ(optionCalls, before + 4);
}

} // namespace

} // namespace TarnisTest
