#include "contract/CopyRoutes.h"
#include "support/PseudoRandom.h"

#include <FileSystem/Failure.h>

#include <gmock/gmock.h>

#include <optional>
#include <stdexcept>
#include <utility>

namespace TarnisTest {

namespace {

constexpr CopyOptions recursive = CopyOption::Recursive;
constexpr CopyOptions everything =
    CopyOption::Recursive | CopyOption::PreservePermissions | CopyOption::PreserveModTime;

class TreeCopyContract : public CopyRouteTest
{
protected:
    void makeSourceDirectory(const std::string& name) const
    {
        EXPECT_TRUE(source().directoryMakePath(sourcePath(name), false)) << name;
    }

    void makeSourceLink(const std::string& name, const std::string& linkTarget) const
    {
        EXPECT_TRUE(source().fileSymbolicLinkCreateAs(linkTarget, sourcePath(name), true)) << name;
    }

    bool copy(const std::string& name, const std::string& targetName, CopyOptions options) const
    {
        return source().fileCopyAs(sourcePath(name), target(), targetPath(targetName), {}, options);
    }

    std::vector<std::string> targetNames(const std::string& name) const
    {
        return target().directoryListFileNames(targetPath(name));
    }

    /// The names below a directory of the target that are no part of a finished copy.
    void expectNothingHalfWritten(const std::string& name) const
    {
        for (const auto& entry : target().directoryList(targetPath(name))) {
            EXPECT_THAT(entry.name, testing::Not(testing::EndsWith(".tarnis-part")));
            if (isDirectory(entry.type)) {
                expectNothingHalfWritten(name + "/" + entry.name);
            }
        }
    }
};

TEST_P(TreeCopyContract, CopiesEverythingBelow)
{
    makeSourceDirectory("tree/a/b");
    makeSourceDirectory("tree/empty");
    makeSource("tree/file", "1");
    makeSource("tree/.hidden", "2");
    makeSource("tree/a/b/deep", "3");
    makeSource("tree/zero", "");
    EXPECT_TRUE(copy("tree", "copy", recursive));
    EXPECT_THAT(targetNames("copy"), testing::ElementsAre(".hidden", "a", "empty", "file", "zero"));
    EXPECT_EQ(targetContent("copy/file"), "1");
    EXPECT_EQ(targetContent("copy/.hidden"), "2");
    EXPECT_EQ(targetContent("copy/a/b/deep"), "3");
    EXPECT_EQ(targetContent("copy/zero"), "");
    EXPECT_TRUE(target().directoryExists(targetPath("copy/empty"), false));
    EXPECT_EQ(sourceContent("tree/a/b/deep"), "3");
}

TEST_P(TreeCopyContract, CopiesAnEmptyDirectory)
{
    makeSourceDirectory("tree");
    EXPECT_TRUE(copy("tree", "copy", recursive));
    EXPECT_TRUE(target().directoryExists(targetPath("copy"), false));
}

TEST_P(TreeCopyContract, CopiesByDirectoryAndName)
{
    makeSourceDirectory("tree");
    makeSource("tree/file", "bytes");
    EXPECT_EQ(
        source().fileCopy(sourcePath("tree"), target(), targetRoot(), "copy", false, {}, recursive),
        targetPath("copy"));
    EXPECT_EQ(targetContent("copy/file"), "bytes");
}

TEST_P(TreeCopyContract, FillsADirectoryThatStands)
{
    makeSourceDirectory("tree/sub");
    makeSource("tree/file", "after");
    makeSource("tree/sub/new", "new");
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy/sub"), false));
    makeTarget("copy/file", "before");
    makeTarget("copy/sub/kept", "stays");
    EXPECT_TRUE(copy("tree", "copy", recursive));
    EXPECT_EQ(targetContent("copy/file"), "after");
    EXPECT_EQ(targetContent("copy/sub/new"), "new");
    EXPECT_EQ(targetContent("copy/sub/kept"), "stays");
}

TEST_P(TreeCopyContract, NeverReplacesADirectoryByAFile)
{
    makeSourceDirectory("tree");
    makeSource("tree/entry", "file");
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy/entry/below"), false));
    EXPECT_FALSE(copy("tree", "copy", recursive));
    EXPECT_TRUE(target().directoryExists(targetPath("copy/entry/below"), false));
    expectNothingHalfWritten("copy");
}

TEST_P(TreeCopyContract, MissingParentIsAFailure)
{
    makeSourceDirectory("tree");
    makeSource("tree/file", "bytes");
    EXPECT_FALSE(copy("tree", "missing/copy", recursive));
    EXPECT_TRUE(CopyRouteTest::targetNames().empty());
}

TEST_P(TreeCopyContract, KeepsPermissionsAndTimesWhenWanted)
{
    makeSourceDirectory("tree/sub");
    makeSource("tree/sub/file", "bytes");
    ASSERT_TRUE(source().fileSetPermissions(sourcePath("tree/sub/file"), Permissions(0604U)));
    ASSERT_TRUE(source().fileSetPermissions(sourcePath("tree/sub"), Permissions(0750U)));
    ASSERT_TRUE(source().fileSetPermissions(sourcePath("tree"), Permissions(0711U)));
    ASSERT_TRUE(source().fileSetModTime(sourcePath("tree/sub/file"), moment(1'000'000'001)));
    ASSERT_TRUE(source().fileSetModTime(sourcePath("tree/sub"), moment(1'000'000'002)));
    ASSERT_TRUE(source().fileSetModTime(sourcePath("tree"), moment(1'000'000'003)));
    EXPECT_TRUE(copy("tree", "copy", everything));
    const auto expect = [this](const std::string& name, std::uint32_t mode, std::int64_t seconds) {
        EXPECT_EQ(target().fileGetPermissions(targetPath(name)), Permissions(mode)) << name;
        EXPECT_EQ(target().fileGetModTime(targetPath(name)), moment(seconds)) << name;
    };
    expect("copy/sub/file", 0604U, 1'000'000'001);
    expect("copy/sub", 0750U, 1'000'000'002);
    expect("copy", 0711U, 1'000'000'003);
}

TEST_P(TreeCopyContract, GivesNewDirectoriesTheSourcesPermissionsLessTheUmask)
{
    makeSourceDirectory("tree/private");
    makeSourceDirectory("tree/locked");
    makeSource("tree/private/file", "bytes");
    makeSource("tree/locked/file", "bytes");
    ASSERT_TRUE(source().fileSetPermissions(sourcePath("tree/private"), Permissions(0700U)));
    ASSERT_TRUE(source().fileSetPermissions(sourcePath("tree/locked"), Permissions(0575U)));
    ASSERT_TRUE(source().fileSetPermissions(sourcePath("tree"), Permissions(0777U)));
    EXPECT_TRUE(copy("tree", "copy", recursive));
    for (const auto& [name, mode] : {std::pair("copy", 0777U), std::pair("copy/private", 0700U),
                                     std::pair("copy/locked", 0575U)}) {
        EXPECT_EQ(target().fileGetPermissions(targetPath(name)), lessUmask(Permissions(mode)))
            << name;
    }
    EXPECT_EQ(targetContent("copy/locked/file"), "bytes");
    EXPECT_TRUE(source().fileSetPermissions(sourcePath("tree/locked"), Permissions(0755U)));
    EXPECT_TRUE(target().fileSetPermissions(targetPath("copy/locked"), Permissions(0755U)));
}

TEST_P(TreeCopyContract, LeavesWhatItFillsItsOwnPermissions)
{
    makeSourceDirectory("tree");
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy"), false));
    ASSERT_TRUE(target().fileSetPermissions(targetPath("copy"), Permissions(0751U)));
    for (const std::string name : {"1", "2", "3", "4", "5", "6"}) {
        makeSource("tree/" + name, "after");
        makeTarget("copy/" + name, "before");
        ASSERT_TRUE(target().fileSetPermissions(targetPath("copy/" + name), Permissions(0640U)));
    }
    EXPECT_TRUE(copy("tree", "copy", recursive));
    EXPECT_EQ(target().fileGetPermissions(targetPath("copy")), Permissions(0751U));
    for (const std::string name : {"1", "6"}) {
        EXPECT_EQ(targetContent("copy/" + name), "after");
        EXPECT_EQ(target().fileGetPermissions(targetPath("copy/" + name)), Permissions(0640U));
    }
}

TEST_P(TreeCopyContract, NeverReplacesAPipeOrASocket)
{
    makeSourceDirectory("tree");
    makeSource("tree/pipe", "bytes");
    makeSource("tree/socket", "bytes");
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy"), false));
    makeTargetPipe("copy/pipe");
    EXPECT_FALSE(copy("tree", "copy", recursive));
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::NotCopyable);
    EXPECT_EQ(FileSystem::Failure::last().entry(), targetPath("copy/pipe"));
    EXPECT_TRUE(target().fileRemove(targetPath("copy/pipe")));
    makeTargetSocket("copy/socket");
    EXPECT_FALSE(copy("tree", "copy", recursive));
    EXPECT_EQ(FileSystem::Failure::last().entry(), targetPath("copy/socket"));
    EXPECT_NE(target().fileType(targetPath("copy/socket")), Types(FileType::Regular));
    expectNothingHalfWritten("copy");
}

TEST_P(TreeCopyContract, FillsADirectoryThatMustNotBeWrittenAfterwards)
{
    makeSourceDirectory("tree/locked");
    makeSource("tree/locked/file", "bytes");
    ASSERT_TRUE(source().fileSetPermissions(sourcePath("tree/locked"), Permissions(0555U)));
    EXPECT_TRUE(copy("tree", "copy", everything));
    EXPECT_EQ(targetContent("copy/locked/file"), "bytes");
    EXPECT_EQ(target().fileGetPermissions(targetPath("copy/locked")), Permissions(0555U));
    EXPECT_TRUE(source().fileSetPermissions(sourcePath("tree/locked"), Permissions(0755U)));
    EXPECT_TRUE(target().fileSetPermissions(targetPath("copy/locked"), Permissions(0755U)));
}

TEST_P(TreeCopyContract, CopiesLinksAsLinksAndNeverStepsThroughThem)
{
    if (!require(capabilities().makesSymbolicLinks) ||
        !require(capabilities().tellsRelativeTargets) || !require(capabilities().renamesLinks)) {
        return;
    }
    makeSourceDirectory("outside");
    makeSource("outside/file", "stays outside");
    makeSourceDirectory("tree");
    makeSource("tree/file", "bytes");
    makeSourceLink("tree/toFile", "file");
    makeSourceLink("tree/outside", "../outside");
    makeSourceLink("tree/absolute", sourcePath("outside"));
    makeSourceLink("tree/dangling", "no/where");
    makeSourceLink("tree/self", ".");
    EXPECT_TRUE(copy("tree", "copy", recursive));
    const auto linkTarget = [this](const std::string& name) {
        return target().fileSymbolicLinkTarget(targetPath("copy/" + name));
    };
    EXPECT_EQ(linkTarget("toFile"), "file");
    EXPECT_EQ(linkTarget("outside"), "../outside");
    EXPECT_EQ(linkTarget("absolute"), sourcePath("outside"));
    EXPECT_EQ(linkTarget("dangling"), "no/where");
    EXPECT_EQ(linkTarget("self"), ".");
    EXPECT_THAT(targetNames("copy"), testing::SizeIs(6));
}

TEST_P(TreeCopyContract, LinkToADirectoryIsCopiedAsALink)
{
    if (!require(capabilities().makesSymbolicLinks) ||
        !require(capabilities().tellsRelativeTargets) || !require(capabilities().renamesLinks)) {
        return;
    }
    makeSourceDirectory("outside");
    makeSourceLink("link", "outside");
    EXPECT_TRUE(copy("link", "copy", recursive));
    EXPECT_EQ(target().fileSymbolicLinkTarget(targetPath("copy")), "outside");
}

// What the target's owner has linked elsewhere must not be written to by filling a directory.
TEST_P(TreeCopyContract, NeverWritesThroughALinkOfTheTarget)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeSourceDirectory("tree/sub");
    makeSource("tree/sub/file", "after");
    makeSource("tree/plain", "after");
    ASSERT_TRUE(target().directoryMakePath(targetPath("treasure"), false));
    makeTarget("treasure/file", "stays");
    makeTarget("gold", "stays");
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy"), false));
    ASSERT_TRUE(
        target().fileSymbolicLinkCreateAs(targetPath("treasure"), targetPath("copy/sub"), true));
    ASSERT_TRUE(
        target().fileSymbolicLinkCreateAs(targetPath("gold"), targetPath("copy/plain"), true));
    static_cast<void>(copy("tree", "copy", recursive));
    EXPECT_EQ(targetContent("treasure/file"), "stays");
    EXPECT_EQ(targetContent("gold"), "stays");
    EXPECT_THAT(targetNames("treasure"), testing::ElementsAre("file"));
}

TEST_P(TreeCopyContract, PipeMakesTheCopyFail)
{
    makeSourceDirectory("tree");
    makeSource("tree/file", "bytes");
    makeSourcePipe("tree/pipe");
    EXPECT_FALSE(copy("tree", "copy", recursive));
    expectNothingHalfWritten("copy");
    EXPECT_FALSE(target().fileExists(targetPath("copy/pipe")));
}

TEST_P(TreeCopyContract, TellsHowFarItIsInBytesOfAllFiles)
{
    makeSourceDirectory("tree/sub");
    makeSource("tree/a", pseudoRandomBytes(1, 10'000));
    makeSource("tree/sub/b", pseudoRandomBytes(2, 5'000));
    std::uint64_t last = 0;
    const auto progress = [&last](std::uint64_t done, std::uint64_t total) {
        // Before the first byte goes the tree is being looked at, and the total grows.
        EXPECT_TRUE(done == 0 || total == 15'000U) << done << " of " << total;
        EXPECT_GE(done, last);
        last = done;
        return true;
    };
    EXPECT_TRUE(source().fileCopyAs(sourcePath("tree"), target(), targetPath("copy"), progress,
                                    recursive, 1'000));
    EXPECT_EQ(last, 15'000U);
}

TEST_P(TreeCopyContract, StopsWhenToldAndLeavesNothingHalfWritten)
{
    makeSourceDirectory("tree/sub");
    const std::string bytes = pseudoRandomBytes(3, 20'000);
    for (const char* name : {"tree/a", "tree/b", "tree/sub/c"}) {
        makeSource(name, bytes);
    }
    const auto stop = [](std::uint64_t done, std::uint64_t) { return done < 30'000; };
    EXPECT_FALSE(source().fileCopyAs(sourcePath("tree"), target(), targetPath("copy"), stop,
                                     recursive, 1'000));
    expectNothingHalfWritten("copy");
    int complete = 0;
    for (const char* name : {"copy/a", "copy/b", "copy/sub/c"}) {
        if (target().fileExists(targetPath(name))) {
            EXPECT_TRUE(targetContent(name) == bytes) << name;
            ++complete;
        }
    }
    EXPECT_LE(complete, 1) << "no more were written when the copy was stopped";
}

TEST_P(TreeCopyContract, PassesAnExceptionOnAndLeavesNothingHalfWritten)
{
    makeSourceDirectory("tree");
    makeSource("tree/file", pseudoRandomBytes(4, 20'000));
    const auto throwing = [](std::uint64_t done, std::uint64_t) -> bool {
        return done < 10'000 ? true : throw std::domain_error("enough");
    };
    EXPECT_THROW(static_cast<void>(source().fileCopyAs(
                     sourcePath("tree"), target(), targetPath("copy"), throwing, recursive, 1'000)),
                 std::domain_error);
    EXPECT_TRUE(targetNames("copy").empty());
}

TEST_P(TreeCopyContract, FileThatCannotBeReadMakesTheCopyFail)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    makeSourceDirectory("tree");
    makeSource("tree/file", "secret");
    ASSERT_TRUE(source().fileSetPermissions(sourcePath("tree/file"), Permissions(0100U)));
    EXPECT_FALSE(copy("tree", "copy", recursive));
    EXPECT_TRUE(targetNames("copy").empty());
}

TEST_P(TreeCopyContract, DirectoryThatCannotBeReadMakesTheCopyFail)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    makeSourceDirectory("tree");
    makeSourceDirectory("tree/closed");
    makeSource("tree/closed/file", "secret");
    ASSERT_TRUE(source().directorySetPermissions(sourcePath("tree/closed"), Permissions(0300U)));
    EXPECT_FALSE(copy("tree", "copy", recursive));
    EXPECT_TRUE(targetNames("copy").empty());
    ASSERT_TRUE(source().directorySetPermissions(sourcePath("tree/closed"), Permissions(0700U)));
}

INSTANTIATE_TEST_SUITE_P(Contract, TreeCopyContract, testing::ValuesIn(copyRoutes()),
                         copyRouteName);

class TreeCopyInPlaceContract : public ContractTest
{
protected:
    bool copyTo(const std::string& target) const
    {
        return system().fileCopyAs(path("tree"), system(), target, {}, recursive);
    }

    void makeTree() const
    {
        makeDirectory("tree");
        makeDirectory("tree/sub");
        makeFile("tree/file", "stays");
    }

    void expectTreeUntouched() const
    {
        EXPECT_EQ(contentOf(path("tree/file")), "stays");
        EXPECT_THAT(names(path("tree")), testing::ElementsAre("file", "sub"));
        EXPECT_TRUE(names(path("tree/sub")).empty());
    }
};

TEST_P(TreeCopyInPlaceContract, NeverCopiesIntoItself)
{
    makeTree();
    EXPECT_FALSE(copyTo(path("tree/copy")));
    EXPECT_FALSE(copyTo(path("tree/sub")));
    EXPECT_FALSE(copyTo(path("tree/sub/copy")));
    EXPECT_FALSE(copyTo(path("tree")));
    expectTreeUntouched();
}

TEST_P(TreeCopyInPlaceContract, NeverCopiesIntoItselfByAnotherWay)
{
    makeTree();
    EXPECT_FALSE(copyTo(root() + "/./tree//copy"));
    EXPECT_FALSE(copyTo(path("tree/sub/../copy")));
    EXPECT_FALSE(system().fileCopyAs(path("tree/"), system(), path("tree/copy"), {}, recursive));
    expectTreeUntouched();
}

TEST_P(TreeCopyInPlaceContract, NeverCopiesIntoItselfThroughALink)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeTree();
    makeLink("link", "tree/sub");
    EXPECT_FALSE(copyTo(path("link/copy")));
    expectTreeUntouched();
}

TEST_P(TreeCopyInPlaceContract, NeighbourReachedThroughItselfIsNotInside)
{
    makeTree();
    EXPECT_TRUE(copyTo(path("tree/sub/../../copy")));
    EXPECT_EQ(contentOf(path("copy/file")), "stays");
}

TEST_P(TreeCopyInPlaceContract, NeighbourWithALongerNameIsNotInside)
{
    makeTree();
    EXPECT_TRUE(copyTo(path("tree2")));
    EXPECT_EQ(contentOf(path("tree2/file")), "stays");
}

INSTANTIATE_TEST_SUITE_P(Contract, TreeCopyInPlaceContract, testing::ValuesIn(backends()),
                         backendName);

} // namespace

} // namespace TarnisTest
