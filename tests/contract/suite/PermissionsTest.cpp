#include "contract/ContractTest.h"

#include <sys/stat.h>

namespace TarnisTest {

namespace {

class PermissionsContract : public ContractTest
{};

TEST_P(PermissionsContract, EveryBitIsSetAndReadBack)
{
    makeFile("file");
    for (const std::uint32_t mode :
         {0400U, 0200U, 0100U, 040U, 020U, 010U, 04U, 02U, 01U, 0777U, 0644U, 0751U}) {
        EXPECT_TRUE(system().fileSetPermissions(path("file"), Permissions(mode)));
        EXPECT_EQ(system().fileGetPermissions(path("file")), Permissions(mode));
    }
}

TEST_P(PermissionsContract, AllowNothingAtAll)
{
    if (!require(capabilities().takesNoPermissions)) {
        return;
    }
    makeFile("file");
    EXPECT_TRUE(system().fileSetPermissions(path("file"), Permissions(0U)));
    EXPECT_EQ(system().fileGetPermissions(path("file")), Permissions(0U));
}

TEST_P(PermissionsContract, AreInEveryRecord)
{
    makeFile("file");
    ASSERT_TRUE(system().fileSetPermissions(path("file"), Permissions(0604U)));
    const auto info = system().fileInfo(path("file"));
    const auto entries = system().directoryFileInfoList(root());
    ASSERT_TRUE(info);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(info->permissions, Permissions(0604U));
    EXPECT_EQ(entries[0].permissions, Permissions(0604U));
}

TEST_P(PermissionsContract, AreNineBits)
{
    if (!require(capabilities().keepsSetIdBits)) {
        return;
    }
    makeFile("file");
    ASSERT_EQ(::chmod(localPath(path("file")).c_str(), 04755), 0);
    EXPECT_EQ(system().fileGetPermissions(path("file")), Permissions(0755U));
}

TEST_P(PermissionsContract, LeaveContentAndTime)
{
    makeFile("file", "stays");
    ASSERT_TRUE(system().fileSetModTime(path("file"), moment(1'000'000'000)));
    ASSERT_TRUE(system().fileSetPermissions(path("file"), Permissions(0600U)));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_EQ(system().fileGetModTime(path("file")), moment(1'000'000'000));
}

TEST_P(PermissionsContract, OfADirectory)
{
    makeDirectory("directory");
    EXPECT_TRUE(system().directorySetPermissions(path("directory"), Permissions(0710U)));
    EXPECT_EQ(system().directoryGetPermissions(path("directory")), Permissions(0710U));
    EXPECT_TRUE(system().fileSetPermissions(path("directory"), Permissions(0750U)));
    EXPECT_EQ(system().fileGetPermissions(path("directory")), Permissions(0750U));
}

TEST_P(PermissionsContract, DirectoryOperationsLeaveAFileAlone)
{
    makeFile("file");
    ASSERT_TRUE(system().fileSetPermissions(path("file"), Permissions(0640U)));
    EXPECT_FALSE(system().directorySetPermissions(path("file"), Permissions(0777U)));
    EXPECT_FALSE(system().directoryGetPermissions(path("file")));
    EXPECT_EQ(system().fileGetPermissions(path("file")), Permissions(0640U));
}

TEST_P(PermissionsContract, MissingFileIsAFailure)
{
    EXPECT_FALSE(system().fileSetPermissions(path("missing"), Permissions(0600U)));
    EXPECT_FALSE(system().directorySetPermissions(path("missing"), Permissions(0700U)));
    EXPECT_FALSE(system().fileSetPermissions(path("missing/below"), Permissions(0600U)));
}

TEST_P(PermissionsContract, FollowALink)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeFile("file");
    makeLink("link", "file");
    makeLink("dangling", "nowhere");
    EXPECT_TRUE(system().fileSetPermissions(path("link"), Permissions(0604U)));
    EXPECT_EQ(system().fileGetPermissions(path("file")), Permissions(0604U));
    EXPECT_FALSE(system().fileSetPermissions(path("dangling"), Permissions(0600U)));
}

INSTANTIATE_TEST_SUITE_P(Contract, PermissionsContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
