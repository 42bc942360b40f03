// Moves between directories that the server does not rename between, as those of two volumes.

#include "integration/sftp/SftpTest.h"
#include "support/PseudoRandom.h"

#include <FileSystem/Failure.h>
#include <FileSystem/LocalFileSystem.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <vector>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;

class MoveBetweenVolumesTest : public ScriptedSftpTest
{
protected:
    void SetUp() override
    {
        start();
        fs::create_directories(path("from"));
        fs::create_directories(path("to"));
    }

    /// Renaming this path, the first time, is what the server cannot do.
    void refuseToRename(const std::string& pathEnd)
    {
        SftpScript script;
        script.rules = {{onPath(nth(SftpPacket::Rename, 1), pathEnd),
                         SftpActions::refuse(SftpStatus::Failure)}};
        server().sftp().setScript(script);
    }

    void setAttributes(const std::string& name, unsigned mode, std::int64_t seconds) const
    {
        fs::permissions(path(name), static_cast<fs::perms>(mode));
        ASSERT_TRUE(local_.fileSetModTime(path(name), timeOf(seconds)));
    }

    void expectAttributes(const std::string& name, unsigned mode, std::int64_t seconds) const
    {
        EXPECT_EQ(fs::symlink_status(path(name)).permissions(), static_cast<fs::perms>(mode))
            << name;
        EXPECT_EQ(local_.fileGetModTime(path(name)), timeOf(seconds)) << name;
    }

    std::vector<std::string> namesIn(const std::string& directory) const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(path(directory))) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    std::uint64_t sent(SftpPacket kind) { return server().sftp().requestCount(kind); }

private:
    const FileSystem::LocalFileSystem local_;
};

TEST_F(MoveBetweenVolumesTest, AFileArrivesWithAllThatItIs)
{
    const std::string content = pseudoRandomBytes(31, 700'000);
    put("from/file", content);
    setAttributes("from/file", 0640, 1'000);
    refuseToRename("from/file");
    EXPECT_TRUE(files().fileMoveAs(path("from/file"), path("to/file")));
    EXPECT_GT(sent(SftpPacket::Read), 0U);
    EXPECT_TRUE(readFile(path("to/file")) == content);
    expectAttributes("to/file", 0640, 1'000);
    EXPECT_THAT(namesIn("from"), testing::IsEmpty());
    EXPECT_THAT(namesIn("to"), testing::ElementsAre("file"));
}

TEST_F(MoveBetweenVolumesTest, ALinkArrivesAsOne)
{
    fs::create_symlink("nowhere", path("from/link"));
    refuseToRename("from/link");
    EXPECT_TRUE(files().fileMoveAs(path("from/link"), path("to/link")));
    EXPECT_EQ(fs::read_symlink(path("to/link")), "nowhere");
    EXPECT_THAT(namesIn("from"), testing::IsEmpty());
}

TEST_F(MoveBetweenVolumesTest, ATreeArrivesWithAllThatItIs)
{
    const std::string content = pseudoRandomBytes(32, 300'000);
    fs::create_directories(path("from/tree/sub/empty"));
    put("from/tree/file", content);
    put("from/tree/sub/none", "");
    fs::create_symlink("../file", path("from/tree/sub/link"));
    setAttributes("from/tree/file", 0600, 1'000);
    setAttributes("from/tree/sub", 0750, 2'000);
    setAttributes("from/tree", 0700, 3'000);
    refuseToRename("from/tree");
    EXPECT_TRUE(files().directoryMoveAs(path("from/tree"), path("to/tree")));
    EXPECT_GT(sent(SftpPacket::Read), 0U);
    EXPECT_TRUE(readFile(path("to/tree/file")) == content);
    EXPECT_THAT(namesIn("to/tree/sub"), testing::UnorderedElementsAre("empty", "none", "link"));
    EXPECT_EQ(fs::read_symlink(path("to/tree/sub/link")), "../file");
    expectAttributes("to/tree/file", 0600, 1'000);
    expectAttributes("to/tree/sub", 0750, 2'000);
    expectAttributes("to/tree", 0700, 3'000);
    EXPECT_THAT(namesIn("from"), testing::IsEmpty());
    EXPECT_THAT(namesIn("to"), testing::ElementsAre("tree"));
}

TEST_F(MoveBetweenVolumesTest, ATreeThatMayNotLeaveIsWhereItWas)
{
    fs::create_directories(path("from/tree"));
    put("from/tree/file", "stays");
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Rename), "from/tree"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)}};
    server().sftp().setScript(script);
    EXPECT_FALSE(files().directoryMoveAs(path("from/tree"), path("to/tree")));
    EXPECT_EQ(readFile(path("from/tree/file")), "stays");
    EXPECT_THAT(namesIn("from"), testing::ElementsAre("tree"));
    EXPECT_THAT(namesIn("to"), testing::IsEmpty());
}

TEST_F(MoveBetweenVolumesTest, AFileThatMayNotLeaveIsWhereItWas)
{
    put("from/file", "stays");
    SftpScript script;
    script.rules = {{onPath(every(SftpPacket::Rename), "from/file"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)},
                    {onPath(every(SftpPacket::Remove), "from/file"),
                     SftpActions::refuse(SftpStatus::PermissionDenied)}};
    server().sftp().setScript(script);
    EXPECT_FALSE(files().fileMoveAs(path("from/file"), path("to/file")));
    EXPECT_EQ(readFile(path("from/file")), "stays");
    EXPECT_THAT(namesIn("to"), testing::IsEmpty());
}

TEST_F(MoveBetweenVolumesTest, DirectoriesKeepTheirStickyBits)
{
    fs::create_directories(path("from/tree/shared"));
    put("from/tree/shared/file", "text");
    setAttributes("from/tree/shared", 03777, 1'000);
    setAttributes("from/tree", 01777, 2'000);
    refuseToRename("/from/tree");
    ASSERT_TRUE(files().directoryMoveAs(path("from/tree"), path("to/tree")));
    EXPECT_GT(sent(SftpPacket::Mkdir), 0U);
    expectAttributes("to/tree", 01777, 2'000);
    expectAttributes("to/tree/shared", 01777, 1'000);
}

// Over a directory that has the bit, and into one that is made.
TEST_F(MoveBetweenVolumesTest, CopiesThatKeepPermissionsKeepStickyBits)
{
    using Option = FileSystem::StorageSystemCopyOptionFlag;
    fs::create_directories(path("from/shared"));
    fs::create_directories(path("to/standing/shared"));
    setAttributes("from/shared", 01777, 1'000);
    setAttributes("from", 0777, 2'000);
    setAttributes("to/standing", 01777, 2'000);
    for (const char* const target : {"to/standing", "to/new"}) {
        for (const auto option : {Option::None, Option::PreserveBestEffort}) {
            ASSERT_TRUE(
                files().fileCopyAs(path("from"), files(), path(target), {},
                                   Option::Recursive | Option::PreservePermissions | option));
            EXPECT_EQ(files().fileMode(path(target) + "/shared"), 01777U) << target;
        }
    }
    EXPECT_EQ(files().fileMode(path("to/standing")), 01777U);
    EXPECT_EQ(files().fileMode(path("to/new")), 0777U);
}

TEST_F(MoveBetweenVolumesTest, WhereStickyBitsAreDroppedNobodyMayWriteThere)
{
    using Option = FileSystem::StorageSystemCopyOptionFlag;
    fs::create_directories(path("from/shared"));
    setAttributes("from/shared", 01777, 1'000);
    SftpScript script;
    script.keepsNineBits = true;
    server().sftp().setScript(script);
    for (const auto option : {Option::None, Option::PreserveBestEffort}) {
        const auto options = Option::Recursive | Option::PreservePermissions | option;
        EXPECT_FALSE(files().fileCopyAs(path("from"), files(), path("to"), {}, options));
        EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::NotKept);
        EXPECT_EQ(FileSystem::Failure::last().entry(), path("to/shared"));
        EXPECT_EQ(files().fileMode(path("to/shared")), 0755U);
    }
}

} // namespace

} // namespace TarnisTest
