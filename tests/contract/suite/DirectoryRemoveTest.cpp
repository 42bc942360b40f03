#include "contract/ContractTest.h"

namespace TarnisTest {

namespace {

class DirectoryRemoveContract : public ContractTest
{
protected:
    /// A directory beside the one that is removed, with a file that must stay.
    void makeTreasure() const
    {
        makeDirectory("treasure");
        makeFile("treasure/gold", "stays");
    }

    void expectTreasure() const { EXPECT_EQ(contentOf(path("treasure/gold")), "stays"); }
};

TEST_P(DirectoryRemoveContract, RemovesAnEmptyDirectory)
{
    makeDirectory("a");
    makeDirectory("b");
    makeDirectory("c");
    EXPECT_TRUE(system().directoryRemove(path("a")));
    EXPECT_TRUE(system().directoryRemove(path("b"), false));
    EXPECT_TRUE(system().directoryRemove(path("c"), true));
    EXPECT_TRUE(names().empty());
}

TEST_P(DirectoryRemoveContract, LeavesADirectoryThatIsNotEmpty)
{
    makeDirectory("directory");
    makeFile("directory/.hidden", "stays");
    EXPECT_FALSE(system().directoryRemove(path("directory")));
    EXPECT_FALSE(system().directoryRemove(path("directory"), false));
    EXPECT_EQ(contentOf(path("directory/.hidden")), "stays");
}

TEST_P(DirectoryRemoveContract, RemovesATree)
{
    ASSERT_TRUE(system().directoryMakePath(path("tree/a/b/c"), false));
    makeFile("tree/file");
    makeFile("tree/a/.hidden");
    makeFile("tree/a/b/c/deep");
    ASSERT_TRUE(system().directoryMakePath(path("tree/empty"), false));
    makeTreasure();
    EXPECT_TRUE(system().directoryRemove(path("tree"), true));
    EXPECT_THAT(names(), testing::ElementsAre("treasure"));
    expectTreasure();
}

TEST_P(DirectoryRemoveContract, RemovesPipesBelow)
{
    makeDirectory("tree");
    makePipe("tree/pipe");
    EXPECT_TRUE(system().directoryRemove(path("tree"), true));
    EXPECT_TRUE(names().empty());
}

TEST_P(DirectoryRemoveContract, RemovesManyEntries)
{
    makeDirectory("tree");
    for (int i = 0; i < 300; ++i) {
        makeFile("tree/file" + std::to_string(i), "");
    }
    EXPECT_TRUE(system().directoryRemove(path("tree"), true));
    EXPECT_TRUE(names().empty());
}

TEST_P(DirectoryRemoveContract, NothingThereIsAFailure)
{
    EXPECT_FALSE(system().directoryRemove(path("missing")));
    EXPECT_FALSE(system().directoryRemove(path("missing"), true));
    EXPECT_FALSE(system().directoryRemove(path("missing/below"), true));
}

TEST_P(DirectoryRemoveContract, FileIsNoDirectory)
{
    makeFile("file", "stays");
    EXPECT_FALSE(system().directoryRemove(path("file")));
    EXPECT_FALSE(system().directoryRemove(path("file"), true));
    EXPECT_EQ(contentOf(path("file")), "stays");
}

TEST_P(DirectoryRemoveContract, NeverStepsThroughALink)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeTreasure();
    makeDirectory("tree");
    makeLink("tree/absolute", path("treasure"));
    makeLink("tree/relative", "../treasure");
    makeLink("tree/up", "..");
    makeLink("tree/self", ".");
    makeLink("tree/file", path("treasure/gold"));
    makeLink("tree/dangling", "nowhere");
    EXPECT_TRUE(system().directoryRemove(path("tree"), true));
    EXPECT_THAT(names(), testing::ElementsAre("treasure"));
    expectTreasure();
}

TEST_P(DirectoryRemoveContract, LinkToADirectoryIsNoDirectory)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeTreasure();
    makeLink("link", "treasure");
    EXPECT_FALSE(system().directoryRemove(path("link")));
    EXPECT_FALSE(system().directoryRemove(path("link"), false));
    EXPECT_FALSE(system().directoryRemove(path("link"), true));
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("link")), textTo("treasure"));
    expectTreasure();
}

// A slash at the end makes operating systems follow the link.
TEST_P(DirectoryRemoveContract, LinkWithASlashAtItsEndIsNoDirectoryEither)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeTreasure();
    makeLink("link", "treasure");
    EXPECT_FALSE(system().directoryRemove(path("link/"), true));
    EXPECT_FALSE(system().directoryRemove(path("link//"), true));
    expectTreasure();
}

TEST_P(DirectoryRemoveContract, RefusesWhatThePermissionsForbid)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    ASSERT_TRUE(system().directoryMakePath(path("tree/locked"), false));
    makeFile("tree/locked/file", "stays");
    ASSERT_TRUE(system().fileSetPermissions(path("tree/locked"), Permissions(0500U)));
    EXPECT_FALSE(system().directoryRemove(path("tree"), true));
    EXPECT_EQ(contentOf(path("tree/locked/file")), "stays");
    EXPECT_TRUE(system().fileSetPermissions(path("tree/locked"), Permissions(0700U)));
}

INSTANTIATE_TEST_SUITE_P(Contract, DirectoryRemoveContract, testing::ValuesIn(backends()),
                         backendName);

} // namespace

} // namespace TarnisTest
