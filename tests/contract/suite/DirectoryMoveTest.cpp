#include "contract/ContractTest.h"

namespace TarnisTest {

namespace {

class DirectoryMoveContract : public ContractTest
{
protected:
    void SetUp() override
    {
        ContractTest::SetUp();
        if (isReady()) {
            makeDirectory("tree");
            makeDirectory("tree/sub");
            makeFile("tree/sub/file", "moved along");
        }
    }

    void expectTreeAt(const std::string& name) const
    {
        EXPECT_EQ(contentOf(path(name + "/sub/file")), "moved along");
    }
};

TEST_P(DirectoryMoveContract, RenameAsGivesAnotherPath)
{
    makeDirectory("target");
    EXPECT_TRUE(system().directoryRenameAs(path("tree"), path("target/new")));
    expectTreeAt("target/new");
    EXPECT_THAT(names(), testing::ElementsAre("target"));
}

TEST_P(DirectoryMoveContract, RenameGivesAnotherNameInTheParent)
{
    EXPECT_EQ(system().directoryRename(path("tree/sub"), "new"), path("tree/new"));
    EXPECT_EQ(contentOf(path("tree/new/file")), "moved along");
    EXPECT_THAT(names(path("tree")), testing::ElementsAre("new"));
}

TEST_P(DirectoryMoveContract, MoveKeepsTheName)
{
    makeDirectory("target");
    EXPECT_EQ(system().directoryMove(path("tree"), path("target")), path("target/tree"));
    expectTreeAt("target/tree");
    EXPECT_THAT(names(), testing::ElementsAre("target"));
}

TEST_P(DirectoryMoveContract, MoveAsGivesAnotherPath)
{
    EXPECT_TRUE(system().directoryMoveAs(path("tree"), path("new")));
    expectTreeAt("new");
    EXPECT_THAT(names(), testing::ElementsAre("new"));
}

TEST_P(DirectoryMoveContract, MissingDirectoryIsAFailure)
{
    EXPECT_FALSE(system().directoryRenameAs(path("missing"), path("new")));
    EXPECT_FALSE(system().directoryRename(path("missing"), "new"));
    EXPECT_FALSE(system().directoryMoveAs(path("missing"), path("new")));
    EXPECT_FALSE(system().directoryMove(path("missing"), path("tree")));
    EXPECT_THAT(names(), testing::ElementsAre("tree"));
}

TEST_P(DirectoryMoveContract, FileIsNoDirectory)
{
    makeFile("file", "stays");
    EXPECT_FALSE(system().directoryRenameAs(path("file"), path("new")));
    EXPECT_FALSE(system().directoryRename(path("file"), "new"));
    EXPECT_FALSE(system().directoryMoveAs(path("file"), path("new")));
    EXPECT_FALSE(system().directoryMove(path("file"), path("tree")));
    EXPECT_EQ(contentOf(path("file")), "stays");
}

TEST_P(DirectoryMoveContract, LinkToADirectoryIsNoDirectory)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeLink("link", "tree");
    EXPECT_FALSE(system().directoryRenameAs(path("link"), path("new")));
    EXPECT_FALSE(system().directoryMoveAs(path("link"), path("new")));
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("link")), textTo("tree"));
    expectTreeAt("tree");
}

TEST_P(DirectoryMoveContract, LinkWithASlashBehindItIsALinkAllTheSame)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeLink("link", path("tree"));
    EXPECT_FALSE(system().directoryRenameAs(path("link/"), path("new")));
    EXPECT_FALSE(system().directoryMoveAs(path("link/"), path("new")));
    EXPECT_FALSE(system().directoryMove(path("link//"), root()));
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("link")), path("tree"));
    EXPECT_THAT(names(), testing::ElementsAre("link", "tree"));
    expectTreeAt("tree");
}

TEST_P(DirectoryMoveContract, MissingParentIsAFailure)
{
    EXPECT_FALSE(system().directoryRenameAs(path("tree"), path("missing/new")));
    EXPECT_FALSE(system().directoryMoveAs(path("tree"), path("missing/new")));
    EXPECT_FALSE(system().directoryMove(path("tree"), path("missing")));
    EXPECT_THAT(names(), testing::ElementsAre("tree"));
    expectTreeAt("tree");
}

TEST_P(DirectoryMoveContract, NeverMovesIntoItself)
{
    EXPECT_FALSE(system().directoryRenameAs(path("tree"), path("tree/new")));
    EXPECT_FALSE(system().directoryRenameAs(path("tree"), path("tree/sub/new")));
    EXPECT_FALSE(system().directoryMoveAs(path("tree"), path("tree/sub/new")));
    EXPECT_FALSE(system().directoryMove(path("tree"), path("tree/sub")));
    EXPECT_THAT(names(path("tree")), testing::ElementsAre("sub"));
    expectTreeAt("tree");
}

TEST_P(DirectoryMoveContract, NeverMovesIntoItselfByAnotherWay)
{
    EXPECT_FALSE(system().directoryMoveAs(path("tree"), root() + "/./tree//sub/new"));
    EXPECT_FALSE(system().directoryMoveAs(path("tree/"), path("tree/sub/../sub/new")));
    expectTreeAt("tree");
    EXPECT_THAT(names(path("tree/sub")), testing::ElementsAre("file"));
}

TEST_P(DirectoryMoveContract, NeverMovesIntoItselfThroughALink)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeLink("link", "tree/sub");
    EXPECT_FALSE(system().directoryMoveAs(path("tree"), path("link/new")));
    expectTreeAt("tree");
    EXPECT_THAT(names(path("tree/sub")), testing::ElementsAre("file"));
}

TEST_P(DirectoryMoveContract, MoveNeverReplaces)
{
    makeDirectory("empty");
    makeDirectory("target");
    makeDirectory("target/tree");
    makeFile("file", "stays");
    EXPECT_FALSE(system().directoryMoveAs(path("tree"), path("empty")));
    EXPECT_FALSE(system().directoryMoveAs(path("tree"), path("file")));
    EXPECT_FALSE(system().directoryMove(path("tree"), path("target")));
    EXPECT_TRUE(names(path("empty")).empty());
    EXPECT_TRUE(names(path("target/tree")).empty());
    EXPECT_EQ(contentOf(path("file")), "stays");
    expectTreeAt("tree");
}

TEST_P(DirectoryMoveContract, RenameOntoADirectoryWithContentIsAFailure)
{
    makeDirectory("target");
    makeFile("target/file", "stays");
    EXPECT_FALSE(system().directoryRenameAs(path("tree"), path("target")));
    EXPECT_EQ(contentOf(path("target/file")), "stays");
    expectTreeAt("tree");
}

TEST_P(DirectoryMoveContract, RenameOntoAFileIsAFailure)
{
    makeFile("target", "stays");
    EXPECT_FALSE(system().directoryRenameAs(path("tree"), path("target")));
    EXPECT_EQ(contentOf(path("target")), "stays");
    expectTreeAt("tree");
}

TEST_P(DirectoryMoveContract, RenameOntoAnEmptyDirectoryDoesWhatTheSystemDoes)
{
    makeDirectory("empty");
    const bool replaced = system().directoryRenameAs(path("tree"), path("empty"));
    EXPECT_EQ(replaced, !capabilities().refusesToRenameOntoExisting.isPresent());
    expectTreeAt(replaced ? "empty" : "tree");
}

TEST_P(DirectoryMoveContract, NewNameIsASingleComponent)
{
    for (const char* name : {"", ".", "..", "sub/new", "/new"}) {
        EXPECT_FALSE(system().directoryRename(path("tree"), name)) << name;
    }
    expectTreeAt("tree");
}

INSTANTIATE_TEST_SUITE_P(Contract, DirectoryMoveContract, testing::ValuesIn(backends()),
                         backendName);

} // namespace

} // namespace TarnisTest
