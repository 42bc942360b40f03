#include <FileSystem/StorageSystemFlags.h>
#include <Utilities/Flags.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

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

TEST(StorageSystemFlags, HaveTheValuesOfTheirInterface)
{
    using namespace FileSystem;
    EXPECT_EQ((StorageSystemFileTypeFlag::Regular | StorageSystemFileTypeFlag::SymbolicLink).raw(),
              17U);
    EXPECT_EQ(Utilities::Flags(StorageSystemFileTypeFlag::Directory).raw(), 2U);
    EXPECT_EQ((PosixFilePermissionFlag::OwnerRead | PosixFilePermissionFlag::OthersExecute).raw(),
              0401U);
    EXPECT_EQ(Utilities::Flags(StorageSystemFileOpenModeFlag::Exclusive).raw(), 32U);
    EXPECT_EQ((StorageSystemCopyOptionFlag::PreservePermissions |
               StorageSystemCopyOptionFlag::PreserveModTime)
                  .raw(),
              3U);
    EXPECT_EQ(static_cast<std::uint32_t>(StorageSystemDirectoryFilterType::SearchPattern), 1U);
    EXPECT_EQ(static_cast<std::uint32_t>(StorageSystemType::Local), 1U);
    EXPECT_EQ(static_cast<std::uint32_t>(StorageSystemType::SFTP), 2U);
    EXPECT_EQ(defaultFilePermissions.raw(), 0666U);
    EXPECT_EQ(defaultDirectoryPermissions.raw(), 0777U);
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
