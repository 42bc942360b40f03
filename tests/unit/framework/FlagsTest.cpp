#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

#include <sys/stat.h>

namespace {

enum class Colour : std::uint32_t
{
    None = 0,
    Red = 1,
    Green = 2,
    Yellow = 3,
    Last = 0x80000000U,
};

using Colours = Utilities::Flags<Colour>;

static_assert(sizeof(Colours) == sizeof(std::uint32_t));
static_assert(std::is_trivially_copyable_v<Colours>);
static_assert(std::is_convertible_v<Colour, Colours>);
static_assert(!std::is_convertible_v<std::uint32_t, Colours>, "a number is no set by accident");
static_assert(Colours(Colour::Red).raw() == 1, "usable at compile time");

TEST(Flags, StartEmpty)
{
    EXPECT_TRUE(Colours().isEmpty());
    EXPECT_EQ(Colours().raw(), 0U);
}

TEST(Flags, KeepBitsThatNoEnumeratorNames)
{
    EXPECT_EQ(Colours(0x70000010U).raw(), 0x70000010U);
    EXPECT_FALSE(Colours(0x70000010U).isEmpty());
}

TEST(Flags, TellWhetherAllBitsOfAnEnumeratorAreInTheSet)
{
    const Colours red = Colour::Red;
    EXPECT_TRUE(red.has(Colour::Red));
    EXPECT_FALSE(red.has(Colour::Green));
    EXPECT_FALSE(red.has(Colour::Yellow)) << "one of two bits is not enough";
    EXPECT_TRUE(Colours(3U).has(Colour::Yellow));
}

TEST(Flags, HoldAnEnumeratorWithoutBitsAlways)
{
    EXPECT_TRUE(Colours().has(Colour::None));
    EXPECT_TRUE(Colours(Colour::Red).has(Colour::None));
}

TEST(Flags, AreUnitedAndIntersected)
{
    const Colours both = Colours(Colour::Red) | Colour::Last;
    EXPECT_EQ(both.raw(), 0x80000001U);
    EXPECT_EQ((both & Colour::Yellow), Colours(Colour::Red));
    EXPECT_TRUE((both & Colour::Green).isEmpty());
}

TEST(Flags, GrowInPlace)
{
    Colours colours;
    colours |= Colour::Green;
    colours |= Colour::Last;
    EXPECT_EQ(colours.raw(), 0x80000002U);
}

TEST(Flags, LoseTheBitsOfAnotherSet)
{
    EXPECT_EQ(Colours(7U).without(Colour::Yellow).raw(), 4U);
    EXPECT_EQ(Colours(Colour::Red).without(Colour::Green), Colours(Colour::Red));
}

TEST(Flags, AreEqualWhenAllBitsAre)
{
    EXPECT_EQ(Colours(3U), Colours(Colour::Yellow));
    EXPECT_NE(Colours(3U), Colours(Colour::Red));
}

// Hosts keep these numbers, and hand them over as numbers.
TEST(StorageSystemFlags, HaveTheValuesOfTheirInterface)
{
    using namespace FileSystem;
    const auto number = [](auto enumerator) { return static_cast<std::uint32_t>(enumerator); };
    EXPECT_EQ(number(StorageSystemFileTypeFlag::Regular), 1U);
    EXPECT_EQ(number(StorageSystemFileTypeFlag::Directory), 2U);
    EXPECT_EQ(number(StorageSystemFileTypeFlag::SymbolicLink), 16U);
    EXPECT_EQ(number(StorageSystemFileOpenModeFlag::Read), 1U);
    EXPECT_EQ(number(StorageSystemFileOpenModeFlag::Write), 2U);
    EXPECT_EQ(number(StorageSystemFileOpenModeFlag::Append), 4U);
    EXPECT_EQ(number(StorageSystemFileOpenModeFlag::Create), 8U);
    EXPECT_EQ(number(StorageSystemFileOpenModeFlag::Truncate), 16U);
    EXPECT_EQ(number(StorageSystemFileOpenModeFlag::Exclusive), 32U);
    EXPECT_EQ(number(StorageSystemCopyOptionFlag::None), 0U);
    EXPECT_EQ(number(StorageSystemCopyOptionFlag::PreservePermissions), 1U);
    EXPECT_EQ(number(StorageSystemCopyOptionFlag::PreserveModTime), 2U);
    EXPECT_EQ(number(StorageSystemCopyOptionFlag::FailIfExists), 4U);
    EXPECT_EQ(number(StorageSystemCopyOptionFlag::Recursive), 8U);
    EXPECT_EQ(number(StorageSystemDirectoryFilterType::SearchPattern), 1U);
    EXPECT_EQ(number(StorageSystemDirectoryFilterType::RegularExpression), 2U);
    EXPECT_EQ(number(StorageSystemType::Local), 1U);
    EXPECT_EQ(number(StorageSystemType::SFTP), 2U);
    EXPECT_EQ(defaultFilePermissions.raw(), 0666U);
    EXPECT_EQ(defaultDirectoryPermissions.raw(), 0777U);
}

TEST(StorageSystemFlags, HaveTheModesOfPosix)
{
    using Permission = FileSystem::PosixFilePermissionFlag;
    const auto mode = [](Permission permission) { return static_cast<mode_t>(permission); };
    EXPECT_EQ(mode(Permission::OwnerRead), S_IRUSR);
    EXPECT_EQ(mode(Permission::OwnerWrite), S_IWUSR);
    EXPECT_EQ(mode(Permission::OwnerExecute), S_IXUSR);
    EXPECT_EQ(mode(Permission::GroupRead), S_IRGRP);
    EXPECT_EQ(mode(Permission::GroupWrite), S_IWGRP);
    EXPECT_EQ(mode(Permission::GroupExecute), S_IXGRP);
    EXPECT_EQ(mode(Permission::OthersRead), S_IROTH);
    EXPECT_EQ(mode(Permission::OthersWrite), S_IWOTH);
    EXPECT_EQ(mode(Permission::OthersExecute), S_IXOTH);
}

TEST(StorageSystemRecords, AreEmptyWhenNothingIsKnown)
{
    const FileSystem::StorageSystemFileInfo info;
    EXPECT_EQ(info.name + info.fileId + info.parentDirectoryId, "");
    EXPECT_TRUE(info.type.isEmpty() && info.permissions.isEmpty());
    EXPECT_EQ(info.size, 0U);
    EXPECT_EQ(info.modTime.time_since_epoch().count(), 0);
    const FileSystem::StorageSystemDirectoryInfo entry;
    EXPECT_EQ(entry.name + entry.fileId + entry.parentDirectoryId, "");
    EXPECT_TRUE(entry.type.isEmpty());
    const FileSystem::StorageSystemStorageInfo volume;
    EXPECT_EQ(volume.free + volume.available + volume.capacity, 0U);
}

TEST(StorageSystemRecords, HaveTheirFieldsInOrder)
{
    // What hosts write in braces means what it says only in this order.
    const FileSystem::StorageSystemFileInfo info{
        "name", "id", "parent", {}, 5, FileSystem::StorageSystemTimePoint(), {}};
    EXPECT_EQ(info.fileId, "id");
    EXPECT_LT(&info.name, &info.fileId);
    EXPECT_LT(&info.fileId, &info.parentDirectoryId);
    EXPECT_LT(static_cast<const void*>(&info.parentDirectoryId),
              static_cast<const void*>(&info.type));
    EXPECT_LT(static_cast<const void*>(&info.type), static_cast<const void*>(&info.size));
    EXPECT_LT(static_cast<const void*>(&info.size), static_cast<const void*>(&info.modTime));
    EXPECT_LT(static_cast<const void*>(&info.modTime), static_cast<const void*>(&info.permissions));
    const FileSystem::StorageSystemStorageInfo volume{1, 2, 3};
    EXPECT_EQ(volume.free, 1U);
    EXPECT_EQ(volume.available, 2U);
    EXPECT_EQ(volume.capacity, 3U);
    const FileSystem::StorageSystemDirectoryInfo entry{"name", "id", "parent", {}};
    EXPECT_EQ(entry.fileId, "id");
    EXPECT_EQ(entry.parentDirectoryId, "parent");
}

TEST(StorageSystemFlags, TellKindsApart)
{
    using namespace FileSystem;
    using Type = Utilities::Flags<StorageSystemFileTypeFlag>;
    const Type link(17U);
    const Type file(1U);
    const Type directory(2U);
    EXPECT_TRUE(isSymbolicLink(link) && !isRegularFile(link) && !isDirectory(link));
    EXPECT_TRUE(isRegularFile(file) && !isSymbolicLink(file) && !isDirectory(file));
    EXPECT_TRUE(isDirectory(directory) && !isRegularFile(directory) && !isSymbolicLink(directory));
    for (const Type other : {Type(), Type(3U)}) {
        EXPECT_FALSE(isRegularFile(other) || isDirectory(other) || isSymbolicLink(other));
    }
}

} // namespace
