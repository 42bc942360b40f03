#include "contract/ContractTest.h"

namespace TarnisTest {

namespace {

class FileRemoveContract : public ContractTest
{};

TEST_P(FileRemoveContract, RemovesAFile)
{
    makeFile("file");
    makeFile("other");
    EXPECT_TRUE(system().fileRemove(path("file")));
    EXPECT_THAT(names(), testing::ElementsAre("other"));
}

TEST_P(FileRemoveContract, RemovesAFileThatMustNotBeWritten)
{
    makeFile("file");
    ASSERT_TRUE(system().fileSetPermissions(path("file"), Permissions(0400U)));
    EXPECT_TRUE(system().fileRemove(path("file")));
    EXPECT_TRUE(names().empty());
}

TEST_P(FileRemoveContract, MissingFileIsAFailure)
{
    EXPECT_FALSE(system().fileRemove(path("missing")));
    EXPECT_FALSE(system().fileRemove(path("missing/below")));
}

TEST_P(FileRemoveContract, DirectoryStays)
{
    makeDirectory("directory");
    EXPECT_FALSE(system().fileRemove(path("directory")));
    EXPECT_TRUE(system().directoryExists(path("directory")));
}

TEST_P(FileRemoveContract, RemovesAPipe)
{
    makePipe("pipe");
    EXPECT_TRUE(system().fileRemove(path("pipe")));
    EXPECT_TRUE(names().empty());
}

TEST_P(FileRemoveContract, RemovesALinkAndNotItsTarget)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeFile("file", "stays");
    makeDirectory("directory");
    makeLink("toFile", "file");
    makeLink("toDirectory", "directory");
    makeLink("dangling", "nowhere");
    EXPECT_TRUE(system().fileRemove(path("toFile")));
    EXPECT_TRUE(system().fileRemove(path("toDirectory")));
    EXPECT_TRUE(system().fileRemove(path("dangling")));
    EXPECT_THAT(names(), testing::ElementsAre("directory", "file"));
    EXPECT_EQ(contentOf(path("file")), "stays");
}

TEST_P(FileRemoveContract, RefusesWhatThePermissionsForbid)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    makeDirectory("directory");
    makeFile("directory/file", "stays");
    ASSERT_TRUE(system().fileSetPermissions(path("directory"), Permissions(0500U)));
    EXPECT_FALSE(system().fileRemove(path("directory/file")));
    EXPECT_EQ(contentOf(path("directory/file")), "stays");
    EXPECT_TRUE(system().fileSetPermissions(path("directory"), Permissions(0700U)));
}

INSTANTIATE_TEST_SUITE_P(Contract, FileRemoveContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
