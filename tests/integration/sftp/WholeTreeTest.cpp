// Very many files with every kind of name: what goes to a real server comes back the same.

#include "integration/sftp/SftpTest.h"
#include "support/AwkwardTree.h"

#include <FileSystem/LocalFileSystem.h>

namespace TarnisTest {

namespace {

using Option = FileSystem::StorageSystemCopyOptionFlag;

constexpr std::size_t kFiles = 10'000;

class WholeTreeTest : public OpenSshSftpTest
{
protected:
    static constexpr auto kEverything =
        Option::Recursive | Option::PreservePermissions | Option::PreserveModTime;

    FileSystem::LocalFileSystem& local() { return local_; }

private:
    FileSystem::LocalFileSystem local_;
};

TEST_F(WholeTreeTest, OfTenThousandFilesGoesUpAndComesDownTheSame)
{
    makeAwkwardTree(path("tree"), kFiles);
    const TreeSnapshot expected = snapshotOf(path("tree"));
    std::uint64_t done = 0;
    std::uint64_t total = 0;
    const auto progress = [&](std::uint64_t bytes, std::uint64_t all) {
        EXPECT_GE(bytes, done);
        done = bytes;
        total = all;
        return true;
    };
    ASSERT_TRUE(local().fileCopyAs(path("tree"), files(), path("up"), progress, kEverything));
    EXPECT_EQ(done, total);
    EXPECT_EQ(differencesBetween(expected, snapshotOf(path("up"))), "");
    ASSERT_TRUE(files().fileCopyAs(path("up"), local(), path("down"), {}, kEverything));
    EXPECT_EQ(differencesBetween(expected, snapshotOf(path("down"))), "");
    EXPECT_EQ(differencesBetween(expected, snapshotOf(path("tree"))), "");
}

TEST_F(WholeTreeTest, IsRemovedToTheLastEntry)
{
    makeAwkwardTree(path("tree"), 1'000);
    // So that a user who is not root may, too.
    for (const auto& [name, entry] : snapshotOf(path("tree"))) {
        if (entry.kind == 'd') {
            ASSERT_TRUE(local().fileSetPermissions(
                path("tree/" + name),
                Utilities::Flags<FileSystem::PosixFilePermissionFlag>(0700U)));
        }
    }
    EXPECT_TRUE(files().directoryRemove(path("tree"), true));
    EXPECT_TRUE(local().directoryListFileNames(directory().path()).empty());
}

} // namespace

} // namespace TarnisTest
