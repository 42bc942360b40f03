// What the program says of itself.

#include "tool/ToolTest.h"

namespace TarnisTest {
namespace {

using testing::HasSubstr;
using testing::Not;

class HelpTest : public ToolTest
{
protected:
    /// Help was asked for, and given.
    std::string helpOf(const std::vector<std::string>& arguments) const
    {
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.exitCode, 0) << testing::PrintToString(arguments);
        EXPECT_EQ(result.errorOutput, "");
        return result.output;
    }
};

TEST_F(HelpTest, ShortHelpHasTheSubCommandsOwnOptions)
{
    const std::string help = helpOf({"get", "--help"});
    EXPECT_THAT(help, HasSubstr("--resume"));
    EXPECT_THAT(help, HasSubstr("--help-all"));
    for (const char* const option : {"--identity", "--password-fd", "--known-hosts", "--port"}) {
        EXPECT_THAT(help, Not(HasSubstr(option)));
    }
    EXPECT_EQ(helpOf({"get", "-h"}), help);
}

TEST_F(HelpTest, TheWholeHelpHasTheConnectionsOptionsToo)
{
    const std::string help = helpOf({"get", "--help-all"});
    for (const char* const option :
         {"--resume", "--identity", "--password-fd", "--known-hosts", "--port", "--quiet"}) {
        EXPECT_THAT(help, HasSubstr(option));
    }
    const std::string all = helpOf({"--help-all"});
    EXPECT_THAT(all, HasSubstr("Usage: tarnis get [OPTIONS]"));
    EXPECT_THAT(all, HasSubstr("--identity"));
    EXPECT_THAT(all, Not(HasSubstr("get get")));
}

TEST_F(HelpTest, HelpIsASubCommand)
{
    EXPECT_EQ(helpOf({"help"}), helpOf({"--help"}));
    EXPECT_EQ(helpOf({"help", "rm"}), helpOf({"rm", "--help"}));
    EXPECT_EQ(helpOf({"help", "help"}), helpOf({"help", "--help"}));
    const ToolResult unknown = run({"help", "frobnicate"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_THAT(unknown.errorOutput, HasSubstr("there is no sub-command \"frobnicate\""));
    EXPECT_EQ(run({"help", "--", "rm"}).exitCode, 2);
}

} // namespace
} // namespace TarnisTest
