#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <system_error>

#include <sys/stat.h>

namespace TarnisTest {
namespace {

namespace fs = std::filesystem;

mode_t modeOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

TEST(TemporaryDirectory, IsFreshAndForTheOwnerAlone)
{
    const TemporaryDirectory first;
    const TemporaryDirectory second;
    EXPECT_NE(first.path(), second.path());
    EXPECT_TRUE(fs::is_empty(first.path()));
    EXPECT_EQ(modeOf(first.path().string()), 0700U);
}

TEST(TemporaryDirectory, WritesFilesWithTheModeAskedFor)
{
    const TemporaryDirectory directory;
    const std::string path = directory.write("script", std::string("a\0b\n", 4), 0755);
    EXPECT_EQ(readFile(path), std::string("a\0b\n", 4));
    EXPECT_EQ(modeOf(path), 0755U);
    directory.write("script", "short");
    EXPECT_EQ(readFile(path), "short");
    EXPECT_EQ(modeOf(path), 0600U);
}

TEST(TemporaryDirectory, FailsToWriteWhereThereIsNoDirectory)
{
    const TemporaryDirectory directory;
    EXPECT_THROW(directory.write("missing/file", "text"), std::runtime_error);
}

TEST(TemporaryDirectory, RemovesEverythingInsideAndNothingThatALinkPointsTo)
{
    const TemporaryDirectory elsewhere;
    const std::string kept = elsewhere.write("kept", "text");
    fs::path path;
    {
        const TemporaryDirectory directory;
        path = directory.path();
        directory.makeDirectory("a/b/c");
        directory.write("a/b/c/file", "text", 0400);
        directory.makeDirectory("a/locked", 0000);
        fs::create_directory_symlink(elsewhere.path(), path / "link");
    }
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(readFile(kept), "text");
}

TEST(TemporaryDirectory, ReadsAMissingFileAsEmpty)
{
    const TemporaryDirectory directory;
    EXPECT_EQ(readFile(directory.file("missing")), "");
}

} // namespace
} // namespace TarnisTest
