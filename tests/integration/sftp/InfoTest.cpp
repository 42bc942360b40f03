// What is told of paths and volumes.

#include "integration/sftp/SftpTest.h"

#include <FileSystem/Failure.h>

#include <filesystem>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace TarnisTest {

namespace {

using FileSystem::StorageSystemFileTypeFlag;

class SftpInfoTest : public OpenSshSftpTest
{
protected:
    Utilities::Flags<StorageSystemFileTypeFlag>::Raw typeOf(const std::string& where)
    {
        const auto info = files().fileInfo(where);
        return info ? info->type.raw() : ~0U;
    }
};

TEST_F(SftpInfoTest, OfAFileIsComplete)
{
    const std::string where = directory().write("file", "12345", 0640);
    ASSERT_TRUE(files().fileSetModTime(where, timeOf(1'000'000'000)));
    const auto info = files().fileInfo(where);
    ASSERT_TRUE(info.has_value());
    EXPECT_EQ(info->name, "file");
    EXPECT_EQ(info->fileId, where);
    EXPECT_EQ(info->parentDirectoryId, directory().path());
    EXPECT_EQ(info->type.raw(), 1U);
    EXPECT_EQ(info->size, 5U);
    EXPECT_EQ(info->modTime, timeOf(1'000'000'000));
    EXPECT_EQ(info->permissions.raw(), 0640U);
}

TEST_F(SftpInfoTest, KeepsTheNinePermissionBitsAlone)
{
    const std::string where = directory().write("file", "x");
    ASSERT_EQ(::chmod(where.c_str(), 06755), 0);
    const auto info = files().fileInfo(where);
    ASSERT_TRUE(info.has_value());
    EXPECT_EQ(info->permissions.raw(), 0755U);
}

TEST_F(SftpInfoTest, TheModeHasAllTwelveBits)
{
    const std::string where = directory().write("file", "x");
    ASSERT_EQ(::chmod(where.c_str(), 06751), 0);
    EXPECT_EQ(files().fileMode(where), 06751U);
    ASSERT_TRUE(files().fileSetPermissions(
        where, Utilities::Flags<FileSystem::PosixFilePermissionFlag>(04700U)));
    EXPECT_EQ(files().fileMode(where), 04700U);
    std::filesystem::create_symlink("file", path("link"));
    EXPECT_EQ(files().fileMode(path("link")), 0777U) << "a link's own";
    EXPECT_FALSE(files().fileMode(path("none")));
    EXPECT_EQ(FileSystem::Failure::last().code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(FileSystem::Failure::last().operation(), "fileMode");
    EXPECT_FALSE(files().fileMode(""));
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::BadName);
}

TEST_F(SftpInfoTest, TellsTheKindBySingleBits)
{
    std::filesystem::create_symlink("anywhere", path("link"));
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(typeOf(path("link")), 17U);
    EXPECT_EQ(typeOf(path("pipe")), 0U);
    EXPECT_EQ(typeOf("/dev/null"), 0U);
    EXPECT_EQ(typeOf(directory().path()), 2U);
}

TEST_F(SftpInfoTest, OfADirectoryHasNoSize)
{
    const auto info = files().fileInfo(directory().path());
    ASSERT_TRUE(info.has_value());
    EXPECT_EQ(info->size, 0U);
}

TEST_F(SftpInfoTest, OfAMissingPathIsEmpty)
{
    EXPECT_FALSE(files().fileInfo(path("missing")).has_value());
    EXPECT_FALSE(files().fileInfo("").has_value());
}

TEST_F(SftpInfoTest, OfAVolumeIsWhatTheMachineSays)
{
    struct statvfs figures = {};
    ASSERT_EQ(::statvfs(directory().path().c_str(), &figures), 0);
    const std::string file = directory().write("file", "x");
    for (const auto& where : {directory().path().string(), file, path("missing/deep/file")}) {
        const auto info = files().fileStorageInfo(where);
        ASSERT_TRUE(info.has_value()) << where;
        EXPECT_EQ(info->capacity, figures.f_blocks * figures.f_frsize);
        EXPECT_GE(info->free, info->available);
        EXPECT_GE(info->capacity, info->free);
    }
}

class ScriptedSftpInfoTest : public ScriptedSftpTest
{};

TEST_F(ScriptedSftpInfoTest, TheVolumeIsNotAskedForWhereTheServerDoesNotOfferIt)
{
    SftpScript script;
    script.extensions.clear();
    script.unknownExtensionIsFatal = true;
    start(script);
    EXPECT_FALSE(files().fileStorageInfo(server().sftp().root()).has_value());
    EXPECT_EQ(server().sftp().requestCount(SftpPacket::Extended), 0U);
    EXPECT_TRUE(files().fileInfo(server().sftp().root()).has_value());
}

TEST_F(ScriptedSftpInfoTest, ASilentlyIgnoredTimeIsNotTakenForSet)
{
    SftpScript script;
    script.rules.push_back({every(SftpPacket::Setstat), SftpActions::refuse(SftpStatus::Ok)});
    start(script);
    const std::string where = put("file", "x");
    EXPECT_FALSE(files().fileSetModTime(where, timeOf(1'000'000'000)));
}

TEST_F(ScriptedSftpInfoTest, ARefusedTimeIsNotSet)
{
    SftpScript script;
    script.rules.push_back(
        {every(SftpPacket::Setstat), SftpActions::refuse(SftpStatus::PermissionDenied)});
    start(script);
    const std::string where = put("file", "x");
    const auto before = files().fileGetModTime(where);
    EXPECT_FALSE(files().fileSetModTime(where, timeOf(1'000'000'000)));
    ASSERT_TRUE(before.has_value());
    EXPECT_FALSE(files().fileSetModTime(where, *before));
}

} // namespace

} // namespace TarnisTest
