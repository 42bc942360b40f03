#include "contract/ContractTest.h"

namespace TarnisTest {

namespace {

class FileMoveContract : public ContractTest
{
protected:
    /// Renames onto what stands at "target", which the caller has made, and checks the outcome
    /// that this system's rename has.
    void expectRenameOntoTarget(const std::string& targetBefore) const
    {
        const bool replaced = system().fileRenameAs(path("file"), path("target"));
        EXPECT_EQ(replaced, !capabilities().refusesToRenameOntoExisting.isPresent());
        EXPECT_EQ(contentOf(path("target")), replaced ? "moved" : targetBefore);
        EXPECT_EQ(isMissing(path("file")), replaced);
    }
};

TEST_P(FileMoveContract, RenameAsGivesAnotherPath)
{
    makeFile("file", "moved");
    makeDirectory("directory");
    EXPECT_TRUE(system().fileRenameAs(path("file"), path("directory/new")));
    EXPECT_EQ(contentOf(path("directory/new")), "moved");
    EXPECT_TRUE(isMissing(path("file")));
}

TEST_P(FileMoveContract, RenameGivesAnotherNameInTheDirectory)
{
    makeDirectory("directory");
    makeFile("directory/file", "moved");
    EXPECT_EQ(system().fileRename(path("directory/file"), "new"), path("directory/new"));
    EXPECT_EQ(contentOf(path("directory/new")), "moved");
    EXPECT_THAT(names(path("directory")), testing::ElementsAre("new"));
}

TEST_P(FileMoveContract, MoveKeepsTheName)
{
    makeFile("file", "moved");
    makeDirectory("directory");
    EXPECT_EQ(system().fileMove(path("file"), path("directory")), path("directory/file"));
    EXPECT_EQ(contentOf(path("directory/file")), "moved");
    EXPECT_TRUE(isMissing(path("file")));
}

TEST_P(FileMoveContract, MoveAsGivesAnotherPath)
{
    makeFile("file", "moved");
    makeDirectory("directory");
    EXPECT_TRUE(system().fileMoveAs(path("file"), path("directory/new")));
    EXPECT_EQ(contentOf(path("directory/new")), "moved");
    EXPECT_TRUE(isMissing(path("file")));
}

TEST_P(FileMoveContract, KeepsTimeAndPermissions)
{
    makeFile("file");
    ASSERT_TRUE(system().fileSetPermissions(path("file"), Permissions(0640U)));
    ASSERT_TRUE(system().fileSetModTime(path("file"), moment(1'000'000'000)));
    ASSERT_TRUE(system().fileMoveAs(path("file"), path("new")));
    EXPECT_EQ(system().fileGetPermissions(path("new")), Permissions(0640U));
    EXPECT_EQ(system().fileGetModTime(path("new")), moment(1'000'000'000));
}

TEST_P(FileMoveContract, MissingFileIsAFailure)
{
    makeDirectory("directory");
    EXPECT_FALSE(system().fileRenameAs(path("missing"), path("new")));
    EXPECT_FALSE(system().fileRename(path("missing"), "new"));
    EXPECT_FALSE(system().fileMoveAs(path("missing"), path("new")));
    EXPECT_FALSE(system().fileMove(path("missing"), path("directory")));
    EXPECT_THAT(names(), testing::ElementsAre("directory"));
}

TEST_P(FileMoveContract, MissingParentIsAFailure)
{
    makeFile("file", "stays");
    EXPECT_FALSE(system().fileRenameAs(path("file"), path("missing/new")));
    EXPECT_FALSE(system().fileMoveAs(path("file"), path("missing/new")));
    EXPECT_FALSE(system().fileMove(path("file"), path("missing")));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_THAT(names(), testing::ElementsAre("file"));
}

TEST_P(FileMoveContract, FileInThePlaceOfTheDirectoryIsAFailure)
{
    makeFile("file", "stays");
    makeFile("other", "stays too");
    EXPECT_FALSE(system().fileMove(path("file"), path("other")));
    EXPECT_FALSE(system().fileRenameAs(path("file"), path("other/new")));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_EQ(contentOf(path("other")), "stays too");
}

TEST_P(FileMoveContract, RenameOntoAFileDoesWhatTheSystemDoes)
{
    makeFile("file", "moved");
    makeFile("target", "before");
    expectRenameOntoTarget("before");
}

TEST_P(FileMoveContract, RenameOntoAnotherNameOfTheSameFileKeepsBoth)
{
    if (!require(capabilities().refusesToRenameOntoExisting)) {
        return;
    }
    makeFile("file", "stays");
    EXPECT_FALSE(system().fileRenameAs(path("file"), path("file")));
    EXPECT_EQ(contentOf(path("file")), "stays");
}

TEST_P(FileMoveContract, RenameOntoADirectoryIsAFailure)
{
    makeFile("file", "stays");
    makeDirectory("directory");
    EXPECT_FALSE(system().fileRenameAs(path("file"), path("directory")));
    EXPECT_FALSE(system().fileRename(path("file"), "directory"));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_TRUE(system().directoryExists(path("directory")));
}

TEST_P(FileMoveContract, MoveNeverReplaces)
{
    makeFile("file", "stays");
    makeDirectory("directory");
    makeFile("directory/file", "stays too");
    EXPECT_FALSE(system().fileMove(path("file"), path("directory")));
    EXPECT_FALSE(system().fileMoveAs(path("file"), path("directory/file")));
    EXPECT_FALSE(system().fileMoveAs(path("file"), path("directory")));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_EQ(contentOf(path("directory/file")), "stays too");
}

TEST_P(FileMoveContract, MoveNeverReplacesALink)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeFile("file", "stays");
    makeLink("dangling", "nowhere");
    EXPECT_FALSE(system().fileMoveAs(path("file"), path("dangling")));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("dangling")), textTo("nowhere"));
}

TEST_P(FileMoveContract, DirectoryIsNoFile)
{
    makeDirectory("directory");
    makeDirectory("target");
    EXPECT_FALSE(system().fileRename(path("directory"), "new"));
    EXPECT_FALSE(system().fileMoveAs(path("directory"), path("new")));
    EXPECT_FALSE(system().fileMove(path("directory"), path("target")));
    EXPECT_THAT(names(), testing::ElementsAre("directory", "target"));
}

TEST_P(FileMoveContract, NewNameIsASingleComponent)
{
    makeFile("file", "stays");
    makeDirectory("directory");
    for (const char* name : {"", ".", "..", "directory/new", "/new"}) {
        EXPECT_FALSE(system().fileRename(path("file"), name)) << name;
    }
    EXPECT_THAT(names(), testing::ElementsAre("directory", "file"));
    EXPECT_EQ(contentOf(path("file")), "stays");
}

TEST_P(FileMoveContract, ALinkIsMovedItself)
{
    if (!require(capabilities().makesSymbolicLinks) || !require(capabilities().renamesLinks)) {
        return;
    }
    makeFile("file", "stays");
    makeDirectory("directory");
    makeLink("link", "file");
    EXPECT_EQ(system().fileRename(path("link"), "renamed"), path("renamed"));
    EXPECT_EQ(system().fileMove(path("renamed"), path("directory")), path("directory/renamed"));
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("directory/renamed")), "file");
    EXPECT_THAT(names(), testing::ElementsAre("directory", "file"));
}

// A server may rename what a link leads to, which is not what was asked for.
TEST_P(FileMoveContract, MovingALinkNeverMovesWhatItLeadsTo)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeFile("file", "stays");
    makeDirectory("directory");
    makeLink("toFile", "file");
    makeLink("toDirectory", "directory");
    const bool moves = capabilities().renamesLinks.isPresent();
    EXPECT_EQ(system().fileRenameAs(path("toFile"), path("movedFile")), moves);
    EXPECT_EQ(system().fileMoveAs(path("toDirectory"), path("movedDirectory")), moves);
    EXPECT_FALSE(system().fileIsSymbolicLink(path("file")));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_TRUE(system().directoryExists(path("directory"), false));
    EXPECT_TRUE(system().fileIsSymbolicLink(path(moves ? "movedFile" : "toFile")));
    EXPECT_TRUE(system().fileIsSymbolicLink(path(moves ? "movedDirectory" : "toDirectory")));
    EXPECT_THAT(names(), testing::SizeIs(4));
}

TEST_P(FileMoveContract, ADanglingLinkIsMovedToo)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeLink("dangling", "nowhere");
    EXPECT_TRUE(system().fileMoveAs(path("dangling"), path("new")));
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("new")), textTo("nowhere"));
    EXPECT_THAT(names(), testing::ElementsAre("new"));
}

TEST_P(FileMoveContract, OntoAnotherNameOfItselfLeavesBoth)
{
    makeFile("file", "stays");
    makeHardLink("file", "other");
    EXPECT_FALSE(system().fileMoveAs(path("file"), path("other")));
    EXPECT_THAT(names(), testing::ElementsAre("file", "other"));
    EXPECT_EQ(contentOf(path("file")), "stays");
}

INSTANTIATE_TEST_SUITE_P(Contract, FileMoveContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
