// Patterns in any part of a path, and what `rm` makes of them.

#include "tool/files/FilesTest.h"

#include <filesystem>

namespace TarnisTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class PatternTest : public FilesTest
{
protected:
    void SetUp() override
    {
        FilesTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        for (const char* const name : {"a", "a/x", "a/y", "a/.h", "a/[z]", "b"}) {
            there().makeDirectory(name);
        }
        for (const char* const name : {"a/x/f", "a/y/f", "a/y/g", "a/.h/f", "a/[z]/f", "a/f"}) {
            there().write(name, name);
        }
    }

    std::string list(const std::string& path) const
    {
        const ToolResult result = tarnis("ls", {"-d", at(path)});
        expectQuiet(result);
        return result.output;
    }
};

TEST_F(PatternTest, EveryPartOfAPathMayBeOne)
{
    EXPECT_EQ(list("a/*/f"), "a/[z]/f\na/x/f\na/y/f\n");
    EXPECT_EQ(list("?/[x-y]/*"), "a/x/f\na/y/f\na/y/g\n");
    EXPECT_EQ(list("./a/x;y/g"), "./a/y/g\n");
    EXPECT_EQ(list("a/.*/f"), "a/.h/f\n");
    EXPECT_EQ(list("a/[z]/*"), "a/[z]/f\n") << "a name that exists";
    EXPECT_EQ(list("a/*/"), "a/[z]\na/x\na/y\n") << "directories alone";
    EXPECT_EQ(list(there().file("a/*/g")), there().file("a/y/g") + "\n");
    expectFailure(tarnis("ls", {at("a/*/none")}), "a/*/none: nothing matches");
    expectFailure(tarnis("ls", {at("none*/f")}), "none*/f: nothing matches");
}

TEST_F(PatternTest, ALinkIsFollowedOnTheWay)
{
    std::filesystem::create_directory_symlink("a/x", there().file("link"));
    EXPECT_EQ(list("l*/f"), "link/f\n");
}

TEST_F(PatternTest, ADirectoryWithoutTheNextPartIsPassedOver)
{
    there().makeDirectory("c");
    there().write("c/x", "a file");
    EXPECT_EQ(list("*/x/*"), "a/x/f\n");
    expectFailure(tarnis("rm", {at("*/none/*")}), "*/none/*: nothing matches");
    expectQuiet(tarnis("rm", {"-f", at("*/none/*")}));
    expectQuiet(tarnis("rm", {"-f", at("*/x/*")}));
    EXPECT_THAT(namesIn(there().file("a/x")), ElementsAre());
    EXPECT_EQ(readFile(there().file("c/x")), "a file");
}

TEST_F(PatternTest, EachAlternativeTellsWhetherItMeansHiddenNames)
{
    there().write("a/.i", "");
    EXPECT_EQ(list("a/.h;*"), "a/.h\na/[z]\na/f\na/x\na/y\n");
    EXPECT_EQ(list("a/x;.*"), "a/.h\na/.i\na/x\n");
    EXPECT_EQ(list("a/[.;x]*"), "a/x\n") << "no alternatives";
}

TEST_F(PatternTest, FilesAreFetchedByOne)
{
    here().makeDirectory("to");
    expectFailure(tarnis("get", {at("a/[xy]/*"), here().file("to")}),
                  "cannot copy " + at("a/y/f") + " to " + here().file("to/f") +
                      ": another source of this call goes there");
    EXPECT_THAT(namesIn(here().file("to")), ElementsAre("f", "g"));
    EXPECT_EQ(readFile(here().file("to/f")), "a/x/f");
}

TEST_F(PatternTest, RmTakesThem)
{
    expectQuiet(tarnis("rm", {at("a/*/f")}));
    EXPECT_THAT(namesIn(there().file("a/x")), ElementsAre());
    EXPECT_THAT(namesIn(there().file("a/y")), ElementsAre("g"));
    EXPECT_THAT(namesIn(there().file("a/.h")), ElementsAre("f")) << "hidden";
    there().write("*", "a star");
    expectQuiet(tarnis("rm", {at("*")}));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("a", "b")) << "a name that exists";
    expectFailure(tarnis("rm", {at("*.log")}), "nothing matches");
    expectQuiet(tarnis("rm", {"-r", at("*")}));
    EXPECT_THAT(namesIn(there().path()), ElementsAre());
}

TEST_F(PatternTest, OneMatchThatStaysDoesNotKeepTheOthers)
{
    const ToolResult result = tarnis("rm", {at("a/*")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errorOutput, HasSubstr("a/x: it is a directory"));
    EXPECT_THAT(result.errorOutput, HasSubstr("a/y: it is a directory"));
    EXPECT_FALSE(std::filesystem::exists(there().file("a/f")));
}

TEST_F(PatternTest, WhatIsNotThereIsNoFailureByForce)
{
    there().write("f", "text");
    expectQuiet(tarnis("rm", {"-f", at("none"), at("none/below"), at("*.log"), at("f")}));
    EXPECT_FALSE(std::filesystem::exists(there().file("f")));
    expectQuiet(tarnis("rm", {"-rf", at("none")}));
    expectFailure(tarnis("rm", {at("none")}), "cannot find " + at("none"));
    // Anything else is.
    expectFailure(tarnis("rm", {"-f", at("b")}), "it is a directory");
}

class ScriptedPatternTest : public ScriptedFilesTest
{};

TEST_F(ScriptedPatternTest, ADirectoryThatCannotBeSearchedDoesNotKeepTheOthers)
{
    put("a/f", "a");
    put("b/f", "b");
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Opendir), "/a"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    const ToolResult listing = tarnis("ls", {at("*/*")});
    expectFailure(listing, "cannot list " + at("a"));
    EXPECT_EQ(listing.output, "b/f\n");
    const ToolResult fetched = tarnis("get", {at("*/*"), here().path().string()});
    expectFailure(fetched, "cannot list " + at("a"));
    EXPECT_EQ(readFile(here().file("f")), "b");
    const ToolResult removed = tarnis("rm", {"-f", at("*/*")});
    expectFailure(removed, "cannot list " + at("a"));
    EXPECT_FALSE(std::filesystem::exists(sftp().path("b/f")));
}

TEST_F(ScriptedPatternTest, WhatCannotBeLookedAtIsAFailureAlsoByForce)
{
    put("f", "text");
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Lstat), "/f"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)}};
    sftp().setScript(script);
    expectFailure(tarnis("rm", {"-f", at("f")}), at("f") + ": ");
    EXPECT_TRUE(std::filesystem::exists(sftp().path("f")));
}

} // namespace
} // namespace TarnisTest
