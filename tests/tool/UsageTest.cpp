// Command lines that are right, wrong, or ask for help.

#include "tool/ToolTest.h"

namespace TarnisTest {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class UsageTest : public ToolTest
{
protected:
    void expectRefused(const std::vector<std::string>& arguments, const std::string& reason) const
    {
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errorOutput, StartsWith("tarnis: "));
        EXPECT_THAT(result.errorOutput, HasSubstr(reason));
        EXPECT_EQ(lineCount(result.errorOutput), 1U) << result.errorOutput;
    }
};

TEST_F(UsageTest, TellsItsVersion)
{
    const ToolResult result = run({"--version"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, std::string("tarnis ") + TARNIS_TOOL_VERSION + "\n");
}

TEST_F(UsageTest, HelpsWithEverySubCommandAndOption)
{
    const ToolResult all = run({"--help"});
    EXPECT_EQ(all.exitCode, 0);
    for (const char* const name :
         {"exec", "hostkey", "doctor", "ls", "stat", "cat", "get", "put", "cp", "mv", "rm", "mkdir",
          "rmdir", "ln", "readlink", "chmod", "touch", "df"}) {
        EXPECT_THAT(all.output, HasSubstr(name));
        const ToolResult one = run({name, "--help"});
        EXPECT_EQ(one.exitCode, 0);
        EXPECT_THAT(one.output, HasSubstr(std::string("Usage: tarnis ") + name));
    }
    const std::string help = run({"exec", "--help-all"}).output;
    for (const char* const option :
         {"--identity", "--known-hosts", "--host-key-policy", "--password-fd", "--password-env",
          "--passphrase-fd", "--passphrase-env", "--timeout", "--connect-timeout", "-- command"}) {
        EXPECT_THAT(help, HasSubstr(option));
    }
}

TEST_F(UsageTest, RefusesWrongCommandLines)
{
    expectRefused({}, "subcommand");
    expectRefused({"frobnicate"}, "there is no sub-command \"frobnicate\"");
    expectRefused({"-q", "frobnicate"}, "there is no sub-command \"frobnicate\"");
    expectRefused({"-q"}, "no sub-command was given");
    expectRefused({"exec"}, "target");
    expectRefused({"exec", "host"}, "exec needs a command line after \"--\"");
    expectRefused({"exec", "host", "--"}, "exec needs a command line after \"--\"");
    expectRefused({"exec", "host", "word", "--", "x"}, "word");
    expectRefused({"exec", "host", "--no-such-option", "--", "x"}, "--no-such-option");
    expectRefused({"exec", "host", "--identity", "--", "x"}, "--identity");
    expectRefused({"exec", "host", "--timeout", "-3", "--", "x"}, "--timeout");
    for (const char* const limit : {"--timeout", "--connect-timeout"}) {
        expectRefused({"exec", "host", limit, "0.5", "--", "x"},
                      std::string(limit) + ": \"0.5\" is no whole number of seconds");
    }
    expectRefused({"exec", "host", "--host-key-policy", "none", "--", "x"},
                  "--host-key-policy: \"none\" is none of ask, new, known and all");
    expectRefused({"hostkey", "host", "--", "x"}, "hostkey takes no command line");
    expectRefused({"doctor", "host", "--", "x"}, "doctor takes no command line");
}

TEST_F(UsageTest, KeepsToItselfWhatWasGivenToAnUnknownOption)
{
    const std::vector<std::string> arguments = {"exec", "host", "--pasword=secret", "--", "x"};
    expectRefused(arguments, "there is no option --pasword (");
    EXPECT_THAT(run(arguments).errorOutput, testing::Not(HasSubstr("secret")));
    expectRefused({"ls", "host:", "--pasword=secret"}, "there is no option \"--pasword\";");
}

TEST_F(UsageTest, TakesOptionsBeforeTheSubCommand)
{
    const RefusingPort port;
    const std::string number = std::to_string(port.number());
    for (const std::vector<std::string>& leading :
         std::vector<std::vector<std::string>>{{"-P", number},
                                               {"--port=" + number},
                                               {"-P" + number, "-q"},
                                               {"-qP", number},
                                               {"--connect-timeout", "20", "--port", number},
                                               // A value may be the name of a sub-command.
                                               {"--known-hosts", "ls", "-P", number}}) {
        std::vector<std::string> arguments = leading;
        arguments.insert(arguments.end(), {"hostkey", "127.0.0.1"});
        const ToolResult result = run(arguments);
        EXPECT_THAT(result.errorOutput, HasSubstr("127.0.0.1:" + number + ""))
            << testing::PrintToString(arguments);
    }
    // Those of the sub-command itself, too.
    EXPECT_THAT(run({"-r", "-P", number, "rm", "127.0.0.1:x"}).errorOutput,
                HasSubstr("127.0.0.1:" + number + ""));
    expectRefused({"--frobnicate", "ls", "host:"}, "there is no option --frobnicate");
}

TEST_F(UsageTest, TheLastOneOfARepeatedOptionCounts)
{
    const RefusingPort port;
    const std::string number = std::to_string(port.number());
    EXPECT_THAT(run({"hostkey", "-P", "1", "-P", number, "127.0.0.1"}).errorOutput,
                HasSubstr("127.0.0.1:" + number + ""));
    EXPECT_THAT(
        run({"exec", "--host-key-policy", "new", "--host-key-policy", "known", "--password-env",
             "NONE", "--password-env", "HOME", "-n", "-n", "-P", number, "127.0.0.1", "--", "x"})
            .errorOutput,
        HasSubstr("127.0.0.1:" + number + ""));
    // Identities gather: each may be repeated.
    expectRefused({"exec", "host", "again", "--", "x"}, "again");
}

TEST_F(UsageTest, RefusesTargetsThatCannotBe)
{
    for (const char* const port : {"0", "65536", "-1", "22x", "", "0x16", " 22"}) {
        expectRefused({"hostkey", std::string("host:") + port},
                      "the port must be a number from 1 to 65535");
    }
    expectRefused({"hostkey", ""}, "the host name is empty");
    expectRefused({"hostkey", "user@"}, "the host name is empty");
    expectRefused({"hostkey", "[]:22"}, "the host name is empty");
    expectRefused({"hostkey", "@host"}, "the user name before \"@\" is empty");
    expectRefused({"hostkey", "[::1"}, R"("]" is missing)");
    expectRefused({"hostkey", "[::1]22"}, R"(only ":port" may follow "]")");
    expectRefused({"hostkey", "two words"}, "blanks or control characters");
    expectRefused({"hostkey", "host;reboot"}, "characters that a host or user name cannot have");
}

TEST_F(UsageTest, UnderstandsEveryFormOfTarget)
{
    const RefusingPort port;
    for (const char* const place :
         {"127.0.0.1:", "[127.0.0.1]:", "user@127.0.0.1:", "user@realm@127.0.0.1:"}) {
        const ToolResult result = run({"hostkey", place + std::to_string(port.number())});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.errorOutput, HasSubstr("Connection refused")) << place;
    }
}

TEST_F(UsageTest, RefusesSecretsThatAreNotWhereTheCallerSays)
{
    expectRefused({"exec", "host", "--password-env", "NO_SUCH_VARIABLE", "--", "x"},
                  "the environment variable NO_SUCH_VARIABLE is not set");
    expectRefused({"exec", "host", "--password-fd", "77", "--", "x"}, "descriptor 77");
    expectRefused({"exec", "host", "--passphrase-fd", "-1", "--", "x"}, "--passphrase-fd");
    expectRefused({"exec", "host", "--password-fd", "3", "--password-env", "X", "--", "x"},
                  "--password-env");
}

TEST_F(UsageTest, RefusesASecretThatIsTooLong)
{
    ToolSetup setup;
    setup.arguments = {"exec", "host", "--password-fd", "9", "--", "x"};
    setup.descriptors[9] = std::string(5000, 'x');
    const ToolResult result = run(setup);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.errorOutput, HasSubstr("longer than"));
}

} // namespace
} // namespace TarnisTest
