// The terminal while a password is typed, and after.

#include "support/ScriptedServer.h"
#include "tool/ToolTest.h"

#include <csignal>

namespace TarnisTest {
namespace {

using testing::HasSubstr;

/// A user who is about to type a password.
class TerminalTest : public ToolTest
{
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        ToolSetup setup;
        setup.arguments = {"exec", target(server_.port()), "--host-key-policy", "all", "--", "x"};
        setup.hasTerminal = true;
        tool_ = start(setup);
        ASSERT_TRUE(tool_->waitForScreen("Password of ")) << tool_->errorOutput();
        ASSERT_FALSE(tool_->terminalEchoes());
    }

    ScriptedServer server_;
    std::unique_ptr<ToolRun> tool_;
};

TEST_F(TerminalTest, IsRestoredWhenControlCEndsTheProgram)
{
    tool_->type("half a pass\x03");
    EXPECT_EQ(tool_->wait(), kEndedBySignal + SIGINT);
    EXPECT_TRUE(tool_->terminalEchoes());
}

TEST_F(TerminalTest, IsRestoredWhenASignalEndsTheProgram)
{
    tool_->signal(SIGTERM);
    EXPECT_EQ(tool_->wait(), kEndedBySignal + SIGTERM);
    EXPECT_TRUE(tool_->terminalEchoes());
}

TEST_F(TerminalTest, AsksAgainAfterAStop)
{
    tool_->signal(SIGTSTP);
    // Without a shell to continue it, the kernel does not let the program stop: it goes on at once.
    ASSERT_TRUE(tool_->waitForScreen("Password of ", 2));
    EXPECT_FALSE(tool_->terminalEchoes());
    tool_->type(std::string(ScriptedPolicy::kPassword) + "\n");
    EXPECT_EQ(tool_->wait(), 0) << tool_->errorOutput();
    EXPECT_TRUE(tool_->terminalEchoes());
}

TEST_F(TerminalTest, EndOfFileIsNoPassword)
{
    tool_->type("\x04");
    EXPECT_EQ(tool_->wait(), 255);
    EXPECT_TRUE(tool_->terminalEchoes());
    EXPECT_THAT(tool_->errorOutput(), HasSubstr("cannot log in to"));
}

} // namespace
} // namespace TarnisTest
