#include "sftp/SFTPAttributes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using FileSystem::StorageSystemFileInfo;
using FileSystem::StorageSystemTimePoint;
using Tarnis::describe;
using Tarnis::fileTypeOf;
using Tarnis::modificationTimeOf;
using Tarnis::sftpTimeOf;

namespace {

StorageSystemTimePoint atTick(std::int64_t ticks)
{
    return StorageSystemTimePoint(StorageSystemTimePoint::duration(ticks));
}

struct KindOfMode
{
    std::uint32_t mode;
    std::uint32_t type;
};

} // namespace

TEST(SftpAttributes, TellTheKindBySingleBits)
{
    for (const auto& [mode, type] :
         {KindOfMode{0100644, 1}, KindOfMode{0040755, 2}, KindOfMode{0120777, 17},
          KindOfMode{0140755, 3}, KindOfMode{0060660, 2}, KindOfMode{0020660, 0},
          KindOfMode{0010600, 0}, KindOfMode{0, 0}, KindOfMode{0777, 0}}) {
        EXPECT_EQ(fileTypeOf(mode).raw(), type) << std::oct << mode;
    }
}

TEST(SftpAttributes, AreDescribedWithTheSizeThatTheServerTold)
{
    sftp_attributes_struct attributes{};
    attributes.permissions = 0047777;
    attributes.size = 4096;
    attributes.mtime = 5;
    attributes.mtime64 = 99;
    attributes.flags = 0;
    StorageSystemFileInfo info;
    describe(attributes, info);
    EXPECT_EQ(info.size, 4096U);
    EXPECT_EQ(info.permissions.raw(), 0777U);
    EXPECT_EQ(info.type.raw(), 2U);
    EXPECT_EQ(info.modTime, atTick(50'000'000));
}

TEST(SftpAttributes, HaveTheStickyBitThatIsWantedOfThem)
{
    using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;
    sftp_attributes_struct attributes{};
    attributes.flags = SSH_FILEXFER_ATTR_PERMISSIONS;
    attributes.permissions = 0040777;
    EXPECT_TRUE(Tarnis::hasPermissions(attributes, Permissions(0777U)));
    EXPECT_FALSE(Tarnis::hasPermissions(attributes, Permissions(01777U)));
    attributes.permissions = 0041777;
    EXPECT_TRUE(Tarnis::hasPermissions(attributes, Permissions(0777U)));
    EXPECT_TRUE(Tarnis::hasPermissions(attributes, Permissions(01777U)));
}

TEST(SftpAttributes, HaveTimesOf100Nanoseconds)
{
    sftp_attributes_struct attributes{};
    attributes.mtime_nseconds = 999'999'999;
    EXPECT_EQ(modificationTimeOf(attributes), atTick(9'999'999));
    attributes.mtime = std::numeric_limits<std::uint32_t>::max();
    attributes.mtime_nseconds = 0;
    EXPECT_EQ(modificationTimeOf(attributes), atTick(42'949'672'950'000'000));
}

TEST(SftpAttributes, TakeATimeApart)
{
    const auto later = sftpTimeOf(atTick(12'345'678'901));
    EXPECT_EQ(later.seconds, 1234U);
    EXPECT_EQ(later.nanoseconds, 567'890'100U);
    const auto before = sftpTimeOf(atTick(-1));
    EXPECT_EQ(before.seconds, 0U);
    EXPECT_EQ(before.nanoseconds, static_cast<std::uint32_t>(-100));
    const auto farBefore = sftpTimeOf(atTick(-10'000'001));
    EXPECT_EQ(farBefore.seconds, static_cast<std::uint64_t>(-1));
    EXPECT_EQ(farBefore.nanoseconds, static_cast<std::uint32_t>(-100));
    const auto last = sftpTimeOf(atTick(std::numeric_limits<std::int64_t>::max()));
    EXPECT_EQ(last.seconds, 922'337'203'685U);
    EXPECT_EQ(last.nanoseconds, 477'580'700U);
}
