#include "contract/ContractTest.h"

#include <chrono>

namespace TarnisTest {

namespace {

class QuestionsContract : public ContractTest
{};

TEST_P(QuestionsContract, FileIsDescribed)
{
    const auto before = std::chrono::system_clock::now();
    makeFile("file", "12345");
    ASSERT_TRUE(system().fileSetPermissions(path("file"), Permissions(0640U)));
    const auto info = system().fileInfo(path("file"));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->name, "file");
    EXPECT_EQ(info->fileId, path("file"));
    EXPECT_EQ(info->parentDirectoryId, root());
    EXPECT_EQ(info->type, Types(FileType::Regular));
    EXPECT_EQ(info->size, 5U);
    EXPECT_EQ(info->permissions, Permissions(0640U));
    EXPECT_GE(info->modTime, before - std::chrono::seconds(2)) << "to the second, at the least";
    EXPECT_LE(info->modTime, std::chrono::system_clock::now() + std::chrono::seconds(2));
}

TEST_P(QuestionsContract, DirectoryIsDescribed)
{
    makeDirectory("directory");
    makeFile("directory/file");
    ASSERT_TRUE(system().fileSetPermissions(path("directory"), Permissions(0750U)));
    for (const auto& info :
         {system().fileInfo(path("directory")), system().directoryInfo(path("directory"))}) {
        ASSERT_TRUE(info);
        EXPECT_EQ(info->name, "directory");
        EXPECT_EQ(info->fileId, path("directory"));
        EXPECT_EQ(info->parentDirectoryId, root());
        EXPECT_EQ(info->type, Types(FileType::Directory));
        EXPECT_EQ(info->size, 0U);
        EXPECT_EQ(info->permissions, Permissions(0750U));
    }
}

TEST_P(QuestionsContract, PathIsGivenBackAsItCame)
{
    makeFile("file");
    const auto info = system().fileInfo(root() + "//./file");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->fileId, root() + "//./file");
    EXPECT_EQ(info->name, "file");
}

TEST_P(QuestionsContract, RootOfTheTreeIsADirectory)
{
    EXPECT_TRUE(system().directoryExists("/"));
    EXPECT_TRUE(system().directoryExists("/", false));
    EXPECT_FALSE(system().fileExists("/"));
}

TEST_P(QuestionsContract, AFileIsAFile)
{
    makeFile("file", "12345");
    EXPECT_TRUE(system().fileExists(path("file")));
    EXPECT_TRUE(system().fileExists(path("file"), true));
    EXPECT_TRUE(system().fileExists(path("file"), false));
    EXPECT_FALSE(system().directoryExists(path("file"), true));
    EXPECT_FALSE(system().directoryExists(path("file"), false));
    EXPECT_FALSE(system().fileIsSymbolicLink(path("file")));
    EXPECT_FALSE(system().directoryIsSymbolicLink(path("file")));
    EXPECT_EQ(system().fileType(path("file")), Types(FileType::Regular));
    EXPECT_FALSE(system().directoryType(path("file")));
    EXPECT_FALSE(system().directoryInfo(path("file")));
    EXPECT_EQ(system().fileSize(path("file")), 5U);
    EXPECT_FALSE(system().directoryGetPermissions(path("file")));
    EXPECT_FALSE(system().directoryGetModTime(path("file")));
}

TEST_P(QuestionsContract, ADirectoryIsADirectory)
{
    makeDirectory("directory");
    EXPECT_FALSE(system().fileExists(path("directory"), true));
    EXPECT_FALSE(system().fileExists(path("directory"), false));
    EXPECT_TRUE(system().directoryExists(path("directory")));
    EXPECT_TRUE(system().directoryExists(path("directory"), true));
    EXPECT_TRUE(system().directoryExists(path("directory"), false));
    EXPECT_FALSE(system().fileIsSymbolicLink(path("directory")));
    EXPECT_FALSE(system().directoryIsSymbolicLink(path("directory")));
    EXPECT_EQ(system().fileType(path("directory")), Types(FileType::Directory));
    EXPECT_EQ(system().directoryType(path("directory")), Types(FileType::Directory));
    EXPECT_EQ(system().fileSize(path("directory")), 0U);
    EXPECT_TRUE(system().fileGetPermissions(path("directory")));
    EXPECT_TRUE(system().directoryGetPermissions(path("directory")));
    EXPECT_TRUE(system().directoryGetModTime(path("directory")));
}

TEST_P(QuestionsContract, NothingIsNothing)
{
    makeFile("file");
    for (const std::string& nothing :
         {path("missing"), path("missing/below"), path("file/below")}) {
        EXPECT_FALSE(system().fileExists(nothing, true)) << nothing;
        EXPECT_FALSE(system().fileExists(nothing, false)) << nothing;
        EXPECT_FALSE(system().directoryExists(nothing, true)) << nothing;
        EXPECT_FALSE(system().directoryExists(nothing, false)) << nothing;
        EXPECT_FALSE(system().fileIsSymbolicLink(nothing)) << nothing;
        EXPECT_FALSE(system().directoryIsSymbolicLink(nothing)) << nothing;
        EXPECT_FALSE(system().fileInfo(nothing)) << nothing;
        EXPECT_FALSE(system().directoryInfo(nothing)) << nothing;
        EXPECT_FALSE(system().fileType(nothing)) << nothing;
        EXPECT_FALSE(system().directoryType(nothing)) << nothing;
        EXPECT_FALSE(system().fileSize(nothing)) << nothing;
        EXPECT_FALSE(system().fileGetPermissions(nothing)) << nothing;
        EXPECT_FALSE(system().directoryGetPermissions(nothing)) << nothing;
        EXPECT_FALSE(system().fileGetModTime(nothing)) << nothing;
        EXPECT_FALSE(system().directoryGetModTime(nothing)) << nothing;
    }
}

// A pipe is no regular file, no directory and no link, but not a directory it is.
TEST_P(QuestionsContract, APipeIsSomethingElse)
{
    makePipe("pipe");
    EXPECT_EQ(system().fileType(path("pipe")), Types());
    EXPECT_TRUE(system().fileExists(path("pipe"), false));
    EXPECT_FALSE(system().directoryExists(path("pipe")));
}

INSTANTIATE_TEST_SUITE_P(Contract, QuestionsContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
