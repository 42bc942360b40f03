// How `[user@]host[:port]:path` is read.

#include "tool/files/FilesTest.h"

namespace TarnisTest {
namespace {

using testing::HasSubstr;

class RemotePathTest : public FilesTest
{
protected:
    void expectContent(const std::string& place, const std::string& content) const
    {
        const ToolResult result = tarnis("cat", {place});
        EXPECT_EQ(result.exitCode, 0) << place << ": " << result.errorOutput;
        EXPECT_EQ(result.output, content) << place;
    }
};

TEST_F(RemotePathTest, BeginsInTheLoginDirectoryUnlessItIsAbsolute)
{
    there().makeDirectory("d");
    there().write("d/f", "relative");
    expectContent(at("d/f"), "relative");
    expectContent(at("./d/f"), "relative");
    expectContent(at("d/../d//f"), "relative");
    expectContent(at(there().file("d/f")), "relative");
    EXPECT_EQ(tarnis("ls", {at("")}).output, "d\n");
    EXPECT_EQ(tarnis("ls", {at(".")}).output, "d\n");
    EXPECT_EQ(tarnis("ls", {at(there().path().string())}).output, "d\n");
}

TEST_F(RemotePathTest, KeepsDigitsAndColonsBehindThePort)
{
    there().write("22", "digits");
    there().write("12:30", "a time of day");
    there().write(":front", "a colon in front");
    there().write("a:b:", "colons");
    expectContent(at("22"), "digits");
    expectContent(at("12:30"), "a time of day");
    expectContent(at("./:front"), "a colon in front");
    expectContent(at("a:b:"), "colons");
}

TEST_F(RemotePathTest, TakesNamesThatLookLikeOptionsOrPatterns)
{
    there().write("-l", "a dash");
    there().write("~", "a tilde");
    there().write("*", "a star");
    there().write("a b'\"$;", "shell characters");
    expectContent(at("-l"), "a dash");
    expectContent(at("~"), "a tilde");
    expectContent(at("*"), "a star");
    expectContent(at("a b'\"$;"), "shell characters");
}

TEST_F(RemotePathTest, TakesAnAddressInBrackets)
{
    there().write("f", "found");
    const std::string place = "[127.0.0.1]:" + std::to_string(server().port()) + ":f";
    expectContent(server().user() + "@" + place, "found");
}

TEST_F(RemotePathTest, OnlyDigitsBetweenTwoColonsAreAPort)
{
    // The usual port does not appear in messages.
    EXPECT_THAT(tarnis("stat", {"no-such-host.invalid:123:"}).errorOutput,
                HasSubstr("cannot connect to no-such-host.invalid:123: "));
    EXPECT_THAT(tarnis("stat", {"no-such-host.invalid:12x:3"}).errorOutput,
                HasSubstr("cannot connect to no-such-host.invalid: "));
    EXPECT_THAT(tarnis("stat", {"[::ffff:0:0:1]:123:x"}).errorOutput,
                HasSubstr("cannot connect to [::ffff:0:0:1]:123: "));
}

TEST_F(RemotePathTest, RefusesWhatIsNone)
{
    const std::vector<std::pair<std::string, std::string>> wrong{
        {"", "write [user@]host:path"},
        {"host", "write [user@]host:path"},
        {"user@host", "write [user@]host:path"},
        {"/tmp/a:b", "write [user@]host:path"},
        {"./a:b", "write [user@]host:path"},
        {"[::1]", "write [user@]host:path"},
        {"[::1:x", "write [user@]host:path"},
        {"::1:x", "an IPv6 address stands in brackets"},
        {":x", "the host name is empty"},
        {"user@:x", "the host name is empty"},
        {"@host:x", "the user name before \"@\" is empty"},
        {"fe80::1:x", "an IPv6 address stands in brackets"},
        {"host:0:x", "the port must be a number from 1 to 65535"},
        {"host:65536:x", "the port must be a number from 1 to 65535"},
        {"two words:x", "blanks or control characters"},
    };
    for (const auto& [text, reason] : wrong) {
        SCOPED_TRACE(text);
        expectFailure(run({"ls", text}), reason, 2);
    }
}

TEST_F(RemotePathTest, RefusesPathsOfTwoServers)
{
    expectFailure(run({"ls", "one:x", "two:x"}), "is on another server than", 2);
    expectFailure(run({"cp", "one:x", "one:2222:x"}), "is on another server than", 2);
    expectFailure(run({"mv", "a@one:x", "b@one:x"}), "is on another server than", 2);
}

TEST_F(RemotePathTest, RefusesTooFewOperands)
{
    for (const char* const command : {"ls", "stat", "cat", "get", "put", "rm", "mkdir", "rmdir",
                                      "mv", "cp", "ln", "readlink", "chmod", "touch", "df"}) {
        expectFailure(run({command}), std::string(command) + " needs ", 2);
    }
    expectFailure(run({"ls", "host:", "--frobnicate"}), "there is no option \"--frobnicate\"", 2);
    expectFailure(run({"put", "file"}), "put needs ", 2);
    expectFailure(run({"mv", "host:x"}), "mv needs ", 2);
    expectFailure(run({"chmod", "644"}), "chmod needs ", 2);
}

} // namespace
} // namespace TarnisTest
