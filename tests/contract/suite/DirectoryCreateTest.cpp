#include "contract/ContractTest.h"

namespace TarnisTest {

namespace {

class DirectoryCreateContract : public ContractTest
{};

TEST_P(DirectoryCreateContract, MakesADirectory)
{
    EXPECT_TRUE(system().directoryCreateAs(path("exclusive"), true));
    EXPECT_TRUE(system().directoryCreateAs(path("plain"), false));
    EXPECT_TRUE(system().directoryExists(path("exclusive"), false));
    EXPECT_TRUE(system().directoryExists(path("plain"), false));
}

TEST_P(DirectoryCreateContract, GivesThePermissionsAskedFor)
{
    EXPECT_TRUE(system().directoryCreateAs(path("a"), true, Permissions(0700U)));
    EXPECT_TRUE(system().directoryMakePath(path("b/c"), false, Permissions(0700U)));
    EXPECT_TRUE(system().directoryCreate(root(), {"d"}, true, Permissions(0700U)));
    EXPECT_EQ(system().directoryGetPermissions(path("a")), Permissions(0700U));
    EXPECT_EQ(system().directoryGetPermissions(path("b/c")), Permissions(0700U));
    EXPECT_EQ(system().directoryGetPermissions(path("d")), Permissions(0700U));
}

TEST_P(DirectoryCreateContract, LeavesAloneWhatStands)
{
    makeDirectory("directory");
    makeFile("directory/file", "stays");
    makeFile("file", "stays too");
    EXPECT_FALSE(system().directoryCreateAs(path("directory"), true));
    EXPECT_FALSE(system().directoryCreateAs(path("file"), true));
    EXPECT_FALSE(system().directoryCreateAs(path("file"), false));
    EXPECT_EQ(contentOf(path("directory/file")), "stays");
    EXPECT_EQ(contentOf(path("file")), "stays too");
}

TEST_P(DirectoryCreateContract, MakesADirectoryForOneOfMany)
{
    for (int round = 0; round < 20; ++round) {
        const std::string contested = path("directory" + std::to_string(round));
        const int winners = countWinners(
            [this, &contested] { return system().directoryCreateAs(contested, false); });
        EXPECT_EQ(winners, 1);
    }
}

TEST_P(DirectoryCreateContract, MakesAPathForAllOfMany)
{
    for (int round = 0; round < 10; ++round) {
        const std::string contested = path("a" + std::to_string(round) + "/b/c");
        const int winners = countWinners(
            [this, &contested] { return system().directoryMakePath(contested, false); });
        EXPECT_EQ(winners, contenders);
    }
}

TEST_P(DirectoryCreateContract, ParentIsNotMade)
{
    makeFile("file");
    EXPECT_FALSE(system().directoryCreateAs(path("missing/new"), false));
    EXPECT_FALSE(system().directoryCreateAs(path("missing/new"), true));
    EXPECT_FALSE(system().directoryCreateAs(path("file/new"), false));
    EXPECT_THAT(names(), testing::ElementsAre("file"));
}

TEST_P(DirectoryCreateContract, MakePathMakesWhatIsMissing)
{
    EXPECT_TRUE(system().directoryMakePath(path("a/b/c"), true));
    EXPECT_TRUE(system().directoryExists(path("a/b/c"), false));
    EXPECT_TRUE(system().directoryMakePath(path("a/b/d/e/"), false));
    EXPECT_TRUE(system().directoryExists(path("a/b/d/e"), false));
}

TEST_P(DirectoryCreateContract, MakePathOfWhatIsThereIsASuccessUnlessExclusive)
{
    EXPECT_TRUE(system().directoryMakePath(path("a/b"), false));
    EXPECT_TRUE(system().directoryMakePath(path("a/b"), false));
    EXPECT_FALSE(system().directoryMakePath(path("a/b"), true));
}

TEST_P(DirectoryCreateContract, MakePathStopsAtAFile)
{
    makeFile("file", "stays");
    EXPECT_FALSE(system().directoryMakePath(path("file"), false));
    EXPECT_FALSE(system().directoryMakePath(path("file/a/b"), false));
    EXPECT_EQ(contentOf(path("file")), "stays");
}

TEST_P(DirectoryCreateContract, MakePathFollowsALinkToADirectory)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeDirectory("directory");
    makeLink("link", "directory");
    EXPECT_TRUE(system().directoryMakePath(path("link/a/b"), true));
    EXPECT_TRUE(system().directoryExists(path("directory/a/b"), false));
    EXPECT_TRUE(system().directoryMakePath(path("link"), false));
    EXPECT_TRUE(system().fileIsSymbolicLink(path("link")));
}

TEST_P(DirectoryCreateContract, MakePathStopsAtADanglingLink)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeLink("dangling", "nowhere");
    EXPECT_FALSE(system().directoryMakePath(path("dangling/a"), false));
    EXPECT_THAT(names(), testing::ElementsAre("dangling"));
}

TEST_P(DirectoryCreateContract, CreateMakesOneBelowTheOther)
{
    EXPECT_EQ(system().directoryCreate(root(), {"a", "b", "c"}, true), path("a/b/c"));
    EXPECT_TRUE(system().directoryExists(path("a/b/c"), false));
}

TEST_P(DirectoryCreateContract, CreateUsesWhatIsOnTheWay)
{
    makeDirectory("a");
    makeFile("a/file", "stays");
    EXPECT_EQ(system().directoryCreate(root(), {"a", "b"}, true), path("a/b"));
    EXPECT_EQ(system().directoryCreate(root(), {"a", "b"}, false), path("a/b"));
    EXPECT_FALSE(system().directoryCreate(root(), {"a", "b"}, true));
    EXPECT_EQ(contentOf(path("a/file")), "stays");
}

TEST_P(DirectoryCreateContract, CreateFailsWithoutAParentOrNames)
{
    EXPECT_FALSE(system().directoryCreate(path("missing"), {"a"}, false));
    EXPECT_FALSE(system().directoryCreate(root(), {}, false));
    EXPECT_TRUE(names().empty());
}

TEST_P(DirectoryCreateContract, CreateFailsAtAFile)
{
    makeFile("file", "stays");
    EXPECT_FALSE(system().directoryCreate(root(), {"file"}, false));
    EXPECT_FALSE(system().directoryCreate(root(), {"file", "a"}, false));
    EXPECT_EQ(contentOf(path("file")), "stays");
}

TEST_P(DirectoryCreateContract, CreateTakesSingleComponentsOnly)
{
    for (const char* name : {"", ".", "..", "a/b", "/a"}) {
        EXPECT_FALSE(system().directoryCreate(root(), {"first", name}, false)) << name;
    }
    EXPECT_TRUE(names().empty()) << "names are looked at before anything is made";
}

TEST_P(DirectoryCreateContract, RefusesWhatThePermissionsForbid)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    makeDirectory("directory");
    ASSERT_TRUE(system().fileSetPermissions(path("directory"), Permissions(0500U)));
    EXPECT_FALSE(system().directoryCreateAs(path("directory/new"), false));
    EXPECT_FALSE(system().directoryMakePath(path("directory/new/below"), false));
    EXPECT_TRUE(names(path("directory")).empty());
    EXPECT_TRUE(system().fileSetPermissions(path("directory"), Permissions(0700U)));
}

INSTANTIATE_TEST_SUITE_P(Contract, DirectoryCreateContract, testing::ValuesIn(backends()),
                         backendName);

} // namespace

} // namespace TarnisTest
