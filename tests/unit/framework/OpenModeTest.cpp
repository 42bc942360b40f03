#include <FileSystem/OpenMode.h>

#include <gtest/gtest.h>

#include <cstdint>

#include <fcntl.h>

namespace {

using Mode = Utilities::Flags<FileSystem::StorageSystemFileOpenModeFlag>;
using Flag = FileSystem::StorageSystemFileOpenModeFlag;

int posix(Mode mode)
{
    return FileSystem::storageSystemFileOpenModeToPosixMode(mode);
}

TEST(OpenMode, ReadsWritesOrDoesBoth)
{
    EXPECT_EQ(posix(Flag::Read), O_RDONLY);
    EXPECT_EQ(posix(Flag::Write), O_WRONLY);
    EXPECT_EQ(posix(Flag::Read | Flag::Write), O_RDWR);
}

TEST(OpenMode, ReadsWhenNothingIsSaid)
{
    EXPECT_EQ(posix(Mode()), O_RDONLY);
    EXPECT_EQ(posix(Flag::Create), O_RDONLY | O_CREAT);
}

TEST(OpenMode, WritesWhenItOnlyAppends)
{
    EXPECT_EQ(posix(Flag::Append), O_WRONLY | O_APPEND);
    EXPECT_EQ(posix(Flag::Append | Flag::Create), O_WRONLY | O_APPEND | O_CREAT);
}

TEST(OpenMode, KeepsTheAccessThatGoesWithAppending)
{
    EXPECT_EQ(posix(Flag::Append | Flag::Write), O_WRONLY | O_APPEND);
    EXPECT_EQ(posix(Flag::Append | Flag::Read), O_RDONLY | O_APPEND);
    EXPECT_EQ(posix(Flag::Append | Flag::Read | Flag::Write), O_RDWR | O_APPEND);
}

TEST(OpenMode, MapsEachFlagToTheOneOfItsName)
{
    EXPECT_EQ(posix(Flag::Write | Flag::Create), O_WRONLY | O_CREAT);
    EXPECT_EQ(posix(Flag::Write | Flag::Truncate), O_WRONLY | O_TRUNC);
    EXPECT_EQ(posix(Flag::Write | Flag::Exclusive), O_WRONLY | O_EXCL);
}

TEST(OpenMode, MapsEverySetToTheSumOfItsParts)
{
    for (std::uint32_t raw = 0; raw < 64; ++raw) {
        const Mode mode(raw);
        const int flags = posix(mode);
        EXPECT_EQ((flags & O_APPEND) != 0, mode.has(Flag::Append)) << raw;
        EXPECT_EQ((flags & O_CREAT) != 0, mode.has(Flag::Create)) << raw;
        EXPECT_EQ((flags & O_TRUNC) != 0, mode.has(Flag::Truncate)) << raw;
        EXPECT_EQ((flags & O_EXCL) != 0, mode.has(Flag::Exclusive)) << raw;
        EXPECT_EQ(flags & ~(O_ACCMODE | O_APPEND | O_CREAT | O_TRUNC | O_EXCL), 0) << raw;
    }
}

TEST(OpenMode, IgnoresBitsThatNameNothing)
{
    EXPECT_EQ(posix(Mode(0xFFFFFF00U) | Flag::Write), O_WRONLY);
}

} // namespace
