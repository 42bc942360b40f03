// Owner, group and permissions of a file of this machine that takes the place of another.

#include "support/TemporaryDirectory.h"
#include "support/UnprivilegedUser.h"

#include <FileSystem/LocalFileSystem.h>

#include <gtest/gtest.h>

#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace TarnisTest {
namespace {

using Option = FileSystem::StorageSystemCopyOptionFlag;

constexpr uid_t somebody = 12'345;
constexpr gid_t group = 23'456;

/// Only the superuser makes files of others.
class LocalSuccession : public testing::Test
{
protected:
    void SetUp() override
    {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only the superuser makes files of others";
        }
    }

    /// A file of somebody's, to be replaced.
    std::string fileOfSomebody(mode_t mode) const
    {
        const auto path = directory.write("target", "old", mode);
        EXPECT_EQ(::chown(path.c_str(), somebody, group), 0);
        return path;
    }

    bool copyTo(const std::string& path, Utilities::Flags<Option> options = {}) const
    {
        return system.fileCopyAs(directory.file("source"), system, path, {}, options);
    }

    static struct stat statusOf(const std::string& path)
    {
        struct stat status = {};
        EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
        return status;
    }

    static unsigned modeOf(const std::string& path) { return statusOf(path).st_mode & 07777U; }

    const TemporaryDirectory directory;
    const FileSystem::LocalFileSystem system;
};

TEST_F(LocalSuccession, KeepsOwnerGroupAndPermissions)
{
    directory.write("source", "new", 0755);
    const auto target = fileOfSomebody(0640);
    ASSERT_TRUE(copyTo(target));
    EXPECT_EQ(readFile(target), "new");
    EXPECT_EQ(modeOf(target), 0640U);
    EXPECT_EQ(statusOf(target).st_uid, somebody);
    EXPECT_EQ(statusOf(target).st_gid, group);
}

TEST_F(LocalSuccession, KeepsTheOwnerWithTheSourcesPermissions)
{
    directory.write("source", "new", 0755);
    const auto target = fileOfSomebody(0640);
    ASSERT_TRUE(copyTo(target, Option::PreservePermissions));
    EXPECT_EQ(modeOf(target), 0755U);
    EXPECT_EQ(statusOf(target).st_uid, somebody);
}

TEST_F(LocalSuccession, OpensNothingToAnotherGroup)
{
    directory.write("source", "new", 0644);
    directory.allowEveryone();
    for (const auto& [before, after] :
         {std::pair(0660U, 0600U), std::pair(0664U, 0644U), std::pair(0775U, 0755U)}) {
        const auto target = fileOfSomebody(before);
        ASSERT_EQ(::chmod(directory.path().c_str(), 0777), 0);
        const UnprivilegedUser nobody;
        ASSERT_TRUE(copyTo(target));
        EXPECT_EQ(modeOf(target), after);
        EXPECT_NE(statusOf(target).st_uid, somebody);
    }
}

TEST_F(LocalSuccession, OfALinkIsThatOfANewFile)
{
    directory.write("source", "new", 0640);
    fileOfSomebody(0600);
    ASSERT_EQ(::symlink("target", directory.file("link").c_str()), 0);
    ASSERT_TRUE(copyTo(directory.file("link")));
    EXPECT_EQ(modeOf(directory.file("link")), 0640U);
    EXPECT_EQ(statusOf(directory.file("link")).st_uid, ::geteuid());
    EXPECT_EQ(readFile(directory.file("target")), "old");
}

} // namespace
} // namespace TarnisTest
