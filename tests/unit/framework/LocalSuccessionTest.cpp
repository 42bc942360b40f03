// Owner, group and permissions of a file of this machine that takes the place of another.

#include "framework/ExpectFailure.h"
#include "support/TemporaryDirectory.h"
#include "support/UnprivilegedUser.h"

#include <FileSystem/Failure.h>
#include <FileSystem/LocalFileSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <grp.h>
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

    std::vector<std::string> namesHere() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

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

/// As nobody in particular who is also in a group besides his own.
class UserInGroup
{
public:
    explicit UserInGroup(gid_t other)
    {
        groups_.resize(static_cast<std::size_t>(::getgroups(0, nullptr)));
        EXPECT_GE(::getgroups(static_cast<int>(groups_.size()), groups_.data()), 0);
        EXPECT_EQ(::setgroups(1, &other), 0);
        EXPECT_EQ(::setegid(nobody), 0);
        EXPECT_EQ(::seteuid(nobody), 0);
    }

    UserInGroup(const UserInGroup&) = delete;
    UserInGroup& operator=(const UserInGroup&) = delete;

    ~UserInGroup()
    {
        EXPECT_EQ(::seteuid(0), 0);
        EXPECT_EQ(::setegid(group_), 0);
        EXPECT_EQ(::setgroups(groups_.size(), groups_.data()), 0);
    }

    static constexpr uid_t nobody = 65534;

private:
    const gid_t group_ = ::getegid();
    std::vector<gid_t> groups_;
};

TEST_F(LocalSuccession, OpensNothingToTheMakersOwnGroupWhileItIsMade)
{
    directory.write("source", "new", 0640);
    const auto target = fileOfSomebody(0640);
    for (const auto& path : {directory.file("source"), target, directory.path().string()}) {
        ASSERT_EQ(::chown(path.c_str(), UserInGroup::nobody, group), 0);
    }
    const auto watches = [this](std::uint64_t, std::uint64_t) {
        for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
            const auto path = entry.path().string();
            EXPECT_TRUE(entry.path().extension() != ".tarnis-part" ||
                        statusOf(path).st_gid == group || (modeOf(path) & 070U) == 0);
        }
        return true;
    };
    const UserInGroup user(group);
    ASSERT_TRUE(system.fileCopyAs(directory.file("source"), system, target, watches));
    EXPECT_EQ(modeOf(target), 0640U);
    EXPECT_EQ(statusOf(target).st_gid, group);
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

TEST_F(LocalSuccession, IsNotThatOfAFileThatSomebodyPutsThereMeanwhile)
{
    directory.write("source", "secret", 0600);
    for (const Utilities::Flags<Option> options :
         {Utilities::Flags<Option>(), Utilities::Flags<Option>(Option::PreservePermissions)}) {
        const auto target = directory.write("target", "old", 0600);
        const auto plants = [this](std::uint64_t done, std::uint64_t total) {
            if (done == total) {
                const auto planted = directory.write("planted", "planted", 0600);
                EXPECT_EQ(::chown(planted.c_str(), somebody, group), 0);
                std::filesystem::rename(planted, directory.file("target"));
            }
            return true;
        };
        EXPECT_FALSE(system.fileCopyAs(directory.file("source"), system, target, plants, options));
        expectFailure(FileSystem::FailureCode::Changed, target);
        EXPECT_EQ(readFile(target), "planted");
        EXPECT_THAT(namesHere(), testing::UnorderedElementsAre("source", "target"));
        std::filesystem::remove(target);
    }
}

TEST_F(LocalSuccession, OfAFileThatCannotBeClosedIsNoReasonToWriteASecretIntoIt)
{
    const auto source = directory.write("source", "secret", 0600);
    ASSERT_EQ(::chown(source.c_str(), UserInGroup::nobody, group), 0);
    const auto target = fileOfSomebody(0666);
    directory.allowEveryone();
    const UnprivilegedUser nobody;
    const auto inPlace = Option::InPlace | Option::PreservePermissions;
    for (const auto options : {inPlace, inPlace | Option::PreserveBestEffort}) {
        EXPECT_FALSE(copyTo(target, options));
        expectFailure(FileSystem::FailureCode::Denied, target);
        EXPECT_EQ(readFile(target), "old");
    }
    // Of what everybody may read anyway the permissions can be done without.
    ASSERT_EQ(::chmod(source.c_str(), 0644), 0);
    EXPECT_FALSE(copyTo(target, inPlace | Option::PreserveBestEffort));
    expectFailure(FileSystem::FailureCode::NotKept, target);
    EXPECT_EQ(readFile(target), "secret");
}

} // namespace
} // namespace TarnisTest
