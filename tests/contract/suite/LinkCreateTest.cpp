#include "contract/ContractTest.h"

namespace TarnisTest {

namespace {

class LinkCreateContract : public LinkContractTest
{
protected:
    /// By both operations, each at a path of its own, which the caller may have prepared.
    void expectBothMake(const std::string& target, bool failIfLinkExists) const
    {
        EXPECT_TRUE(system().fileSymbolicLinkCreateAs(target, path("file"), failIfLinkExists));
        EXPECT_TRUE(
            system().directorySymbolicLinkCreateAs(target, path("directory"), failIfLinkExists));
        EXPECT_EQ(system().fileSymbolicLinkTarget(path("file")), target);
        EXPECT_EQ(system().directorySymbolicLinkTarget(path("directory")), target);
        EXPECT_THAT(names(), testing::IsSupersetOf({"directory", "file"}));
    }

    void expectBothRefuse(const std::string& target, bool failIfLinkExists) const
    {
        EXPECT_FALSE(system().fileSymbolicLinkCreateAs(target, path("file"), failIfLinkExists));
        EXPECT_FALSE(
            system().directorySymbolicLinkCreateAs(target, path("directory"), failIfLinkExists));
    }
};

TEST_P(LinkCreateContract, MakesALinkToWhatNeedNotBeThere)
{
    expectBothMake(textTo("nowhere"), true);
    EXPECT_THAT(names(), testing::ElementsAre("directory", "file"));
}

TEST_P(LinkCreateContract, SlashBehindTheLinksPathMakesNoDifference)
{
    const std::string nowhere = path("nowhere");
    makeDirectory("directory");
    makeFile("directory/file");
    EXPECT_TRUE(system().fileSymbolicLinkCreateAs(nowhere, path("link/"), true));
    EXPECT_TRUE(system().directorySymbolicLinkCreateAs(nowhere, path("directory/"), true));
    EXPECT_FALSE(system().fileSymbolicLinkCreateAs(path("elsewhere"), path("link/"), true));
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("link")), nowhere);
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("directory")), nowhere);
    EXPECT_THAT(names(), testing::ElementsAre("directory", "link"));
}

TEST_P(LinkCreateContract, RemovesNothingForALinkThatCannotBe)
{
    makeFile("file", "stays");
    makeDirectory("directory");
    makeFile("directory/file", "stays");
    expectBothRefuse("", false);
    expectBothRefuse(std::string("a\0b", 3), false);
    EXPECT_FALSE(system().fileSymbolicLinkCreateAs("to", path("directory/."), false));
    EXPECT_FALSE(system().fileSymbolicLinkCreateAs("to", path("directory/.."), false));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_EQ(contentOf(path("directory/file")), "stays");
}

TEST_P(LinkCreateContract, PutsAnAbsoluteTargetIntoTheLinkAsItIs)
{
    expectBothMake("/no//such/./place/../at/all", true);
}

TEST_P(LinkCreateContract, PutsARelativeTargetIntoTheLinkAsItIsOrMakesNone)
{
    const std::string target = "../up/./and//down/";
    if (capabilities().tellsRelativeTargets.isPresent()) {
        expectBothMake(target, true);
    } else {
        expectBothRefuse(target, true);
        EXPECT_TRUE(names().empty());
    }
    EXPECT_TRUE(isMissing(path("../up")));
}

TEST_P(LinkCreateContract, TargetThatExistsIsNotTouched)
{
    makeFile("target", "stays");
    expectBothMake(textTo("target"), false);
    EXPECT_EQ(contentOf(path("target")), "stays");
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_THAT(names(), testing::ElementsAre("directory", "file", "target"));
}

TEST_P(LinkCreateContract, AbsoluteTargetThatExistsIsNotTouched)
{
    makeFile("target", "stays");
    expectBothMake(path("target"), false);
    EXPECT_EQ(contentOf(path("target")), "stays");
    EXPECT_FALSE(system().fileIsSymbolicLink(path("target")));
}

TEST_P(LinkCreateContract, TakesAwkwardTargets)
{
    const auto& targets =
        capabilities().takesAnyBytesInNames.isPresent() ? awkwardNames() : awkwardTextNames();
    for (const std::string& target : targets) {
        expectBothMake(textTo(target), false);
    }
    EXPECT_THAT(names(), testing::ElementsAre("directory", "file"));
}

TEST_P(LinkCreateContract, TakesALongTarget)
{
    std::string target;
    while (target.size() < 1000) {
        target += "/long";
    }
    expectBothMake(target, true);
}

TEST_P(LinkCreateContract, ReplacesALink)
{
    makeLink("file", "before");
    makeLink("directory", "before");
    expectBothMake(textTo("after"), false);
}

TEST_P(LinkCreateContract, ReplacesALinkToADirectoryAndLeavesTheDirectory)
{
    makeDirectory("treasure");
    makeFile("treasure/gold", "stays");
    makeLink("file", "treasure");
    makeLink("directory", "treasure");
    expectBothMake(textTo("after"), false);
    EXPECT_EQ(contentOf(path("treasure/gold")), "stays");
}

TEST_P(LinkCreateContract, LeavesALinkToAFileWhenItMust)
{
    makeFile("target");
    makeLink("file", "target");
    EXPECT_FALSE(system().fileSymbolicLinkCreateAs("after", path("file"), true));
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("file")), textTo("target"));
}

TEST_P(LinkCreateContract, LeavesALinkToADirectoryWhenItMust)
{
    makeDirectory("target");
    makeLink("file", "target");
    makeLink("directory", "target");
    expectBothRefuse("after", true);
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("file")), textTo("target"));
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("directory")), textTo("target"));
}

TEST_P(LinkCreateContract, LeavesADanglingLinkOfAFileOnly)
{
    makeLink("file", "before");
    makeLink("directory", "before");
    EXPECT_FALSE(system().fileSymbolicLinkCreateAs("after", path("file"), true));
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("file")), textTo("before"));
    EXPECT_TRUE(system().directorySymbolicLinkCreateAs(textTo("after"), path("directory"), true))
        << "only links to directories are protected";
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("directory")), textTo("after"));
}

TEST_P(LinkCreateContract, ReplacesAFileInAnyCase)
{
    for (const bool failIfLinkExists : {false, true}) {
        static_cast<void>(system().fileRemove(path("file")));
        static_cast<void>(system().fileRemove(path("directory")));
        makeFile("file");
        makeFile("directory");
        expectBothMake(textTo("target"), failIfLinkExists);
    }
}

TEST_P(LinkCreateContract, ReplacesADirectoryWithAllBelowInAnyCase)
{
    makeDirectory("treasure");
    makeFile("treasure/gold", "stays");
    for (const bool failIfLinkExists : {false, true}) {
        static_cast<void>(system().fileRemove(path("file")));
        static_cast<void>(system().fileRemove(path("directory")));
        ASSERT_TRUE(system().directoryMakePath(path("file/a/b"), true));
        ASSERT_TRUE(system().directoryMakePath(path("directory/a/b"), true));
        makeLink("file/a/link", path("treasure"));
        makeFile("directory/a/b/file");
        expectBothMake(textTo("target"), failIfLinkExists);
    }
    EXPECT_EQ(contentOf(path("treasure/gold")), "stays");
}

TEST_P(LinkCreateContract, MissingParentIsAFailure)
{
    EXPECT_FALSE(system().fileSymbolicLinkCreateAs("target", path("missing/link"), false));
    EXPECT_FALSE(system().directorySymbolicLinkCreateAs("target", path("missing/link"), false));
    EXPECT_TRUE(names().empty());
}

TEST_P(LinkCreateContract, MakesALinkByDirectoryAndName)
{
    makeDirectory("sub");
    EXPECT_EQ(system().fileSymbolicLinkCreate(path("sub"), "file", "/no/a", true),
              path("sub/file"));
    EXPECT_EQ(system().directorySymbolicLinkCreate(path("sub"), "directory", "/no/b", true),
              path("sub/directory"));
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("sub/file")), "/no/a");
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("sub/directory")), "/no/b");
    EXPECT_FALSE(system().fileSymbolicLinkCreate(path("sub"), "file", "c", true));
    EXPECT_FALSE(system().fileSymbolicLinkCreate(path("missing"), "file", "c", true));
}

TEST_P(LinkCreateContract, NameIsASingleComponent)
{
    makeDirectory("sub");
    makeFile("sub/file", "stays");
    for (const char* name : {"", ".", "..", "sub/file", "/new"}) {
        EXPECT_FALSE(system().fileSymbolicLinkCreate(root(), name, "target", false)) << name;
        EXPECT_FALSE(system().directorySymbolicLinkCreate(root(), name, "target", false)) << name;
    }
    EXPECT_THAT(names(), testing::ElementsAre("sub"));
    EXPECT_EQ(contentOf(path("sub/file")), "stays");
}

TEST_P(LinkCreateContract, LinkMayPointToItself)
{
    expectBothMake(textTo("file"), true);
}

INSTANTIATE_TEST_SUITE_P(Contract, LinkCreateContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
