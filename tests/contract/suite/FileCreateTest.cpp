#include "contract/ContractTest.h"

#include <FileSystem/FileSystem2File.h>

#include <array>

namespace TarnisTest {

namespace {

class FileCreateContract : public ContractTest
{};

TEST_P(FileCreateContract, MakesAFileToReadAndWrite)
{
    const auto file = system().fileCreate(root(), "new", true, false);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->fileId(), path("new"));
    EXPECT_TRUE(file->writeFully("bytes", 5));
    EXPECT_TRUE(file->seek(0));
    std::array<char, 5> buffer = {};
    EXPECT_EQ(file->readFully(buffer.data(), buffer.size()).count, 5U);
    EXPECT_EQ(contentOf(path("new")), "bytes");
}

TEST_P(FileCreateContract, MakesAFileByPath)
{
    EXPECT_NE(system().fileCreateAs(path("new"), true, false), nullptr);
    EXPECT_EQ(contentOf(path("new")), "");
}

TEST_P(FileCreateContract, EmptiesAFileThatStands)
{
    makeFile("file", "before");
    EXPECT_NE(system().fileCreateAs(path("file"), false, false), nullptr);
    EXPECT_EQ(contentOf(path("file")), "");
}

TEST_P(FileCreateContract, LeavesAloneWhatStandsWhenItMust)
{
    makeFile("file", "before");
    makeDirectory("directory");
    EXPECT_EQ(system().fileCreateAs(path("file"), true, false), nullptr);
    EXPECT_EQ(system().fileCreate(root(), "file", true, true), nullptr);
    EXPECT_EQ(system().fileCreateAs(path("directory"), true, false), nullptr);
    EXPECT_EQ(contentOf(path("file")), "before");
}

TEST_P(FileCreateContract, DirectoryIsNoFile)
{
    makeDirectory("directory");
    EXPECT_EQ(system().fileCreateAs(path("directory"), false, false), nullptr);
    EXPECT_EQ(system().fileCreateAs(path("directory"), false, true), nullptr);
}

TEST_P(FileCreateContract, MissingParentIsMadeOnlyWhenWanted)
{
    EXPECT_EQ(system().fileCreateAs(path("a/b/new"), false, false), nullptr);
    EXPECT_TRUE(names().empty());
    EXPECT_NE(system().fileCreateAs(path("a/b/new"), false, true), nullptr);
    EXPECT_EQ(contentOf(path("a/b/new")), "");
    EXPECT_NE(system().fileCreate(path("c/d"), "new", true, true), nullptr);
    EXPECT_EQ(contentOf(path("c/d/new")), "");
}

TEST_P(FileCreateContract, NameIsASingleComponent)
{
    makeDirectory("sub");
    for (const char* name : {"", ".", "..", "sub/new", "/new", "../new"}) {
        EXPECT_EQ(system().fileCreate(path("sub"), name, false, true), nullptr) << name;
    }
    EXPECT_THAT(names(), testing::ElementsAre("sub"));
    EXPECT_TRUE(names(path("sub")).empty());
}

TEST_P(FileCreateContract, NewFileHasThePermissionsAskedFor)
{
    EXPECT_NE(system().fileCreateAs(path("a"), true, false, Permissions(0600U)), nullptr);
    EXPECT_NE(system().fileCreate(root(), "b", true, false, Permissions(0700U)), nullptr);
    EXPECT_EQ(system().fileGetPermissions(path("a")), Permissions(0600U));
    EXPECT_EQ(system().fileGetPermissions(path("b")), Permissions(0700U));
}

TEST_P(FileCreateContract, LinkIsFollowedUnlessItMustNotExist)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeFile("file", "before");
    makeLink("link", "file");
    EXPECT_EQ(system().fileCreateAs(path("link"), true, false), nullptr);
    EXPECT_EQ(contentOf(path("file")), "before");
    EXPECT_NE(system().fileCreateAs(path("link"), false, false), nullptr);
    EXPECT_EQ(contentOf(path("file")), "");
    EXPECT_TRUE(system().fileIsSymbolicLink(path("link")));
}

INSTANTIATE_TEST_SUITE_P(Contract, FileCreateContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
