#include "support/TemporaryDirectory.h"

#include <FileSystem/Failure.h>
#include <FileSystem/LocalFileSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// What the system answers here, in place of the real one.
int renameError = EINVAL;
int linkError = 0;
int replaceError = 0;
int renames = 0;
std::function<void()> afterRenaming;
std::function<void()> beforeRemoving;

} // namespace

// Defined here, these come before libc's: a file system that cannot refuse to replace, and on
// demand one without hard links, or one where others are at work too.
extern "C" [[gnu::visibility("default")]] int renameat2(int /*from*/, const char* /*path*/,
                                                        int /*to*/, const char* /*newPath*/,
                                                        unsigned int /*flags*/) noexcept
{
    ++renames;
    errno = renameError;
    return -1;
}

extern "C" [[gnu::visibility("default")]] int linkat(int from, const char* path, int to,
                                                     const char* newPath, int flags) noexcept
{
    if (linkError != 0) {
        errno = linkError;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_linkat, from, path, to, newPath, flags));
}

extern "C" [[gnu::visibility("default")]] int unlinkat(int directory, const char* path,
                                                       int flags) noexcept
{
    if (const auto others = std::exchange(beforeRemoving, nullptr)) {
        others();
    }
    return static_cast<int>(::syscall(SYS_unlinkat, directory, path, flags));
}

extern "C" [[gnu::visibility("default")]] int rename(const char* path, const char* newPath) noexcept
{
    if (replaceError != 0) {
        errno = replaceError;
        return -1;
    }
    const int result = ::renameat(AT_FDCWD, path, AT_FDCWD, newPath);
    if (afterRenaming) {
        afterRenaming();
    }
    return result;
}

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;

class RenameFallback : public testing::TestWithParam<int>
{
protected:
    void SetUp() override
    {
        renameError = EINVAL;
        linkError = GetParam();
        renames = 0;
    }

    void TearDown() override { EXPECT_GT(renames, 0) << "the test has bypassed the fallback"; }

    std::string file(std::string_view name) const { return directory_.file(name); }

    std::vector<std::string> names() const
    {
        return system_.directoryListFileNames(directory_.path().string());
    }

    bool rename(std::string_view name, std::string_view newName) const
    {
        return system_.fileRenameAs(file(name), file(newName));
    }

    const TemporaryDirectory directory_;
    const FileSystem::LocalFileSystem system_;
};

TEST_P(RenameFallback, RenamesAFile)
{
    directory_.write("file", "moved");
    EXPECT_TRUE(rename("file", "new"));
    EXPECT_EQ(readFile(file("new")), "moved");
    EXPECT_THAT(names(), testing::ElementsAre("new"));
}

TEST_P(RenameFallback, RenamesALinkItself)
{
    directory_.write("file", "stays");
    fs::create_symlink("file", file("link"));
    EXPECT_TRUE(rename("link", "new"));
    EXPECT_EQ(fs::read_symlink(file("new")), "file");
    EXPECT_THAT(names(), testing::ElementsAre("file", "new"));
}

TEST_P(RenameFallback, RenamesADirectory)
{
    directory_.makeDirectory("tree/sub");
    EXPECT_TRUE(rename("tree", "new"));
    EXPECT_TRUE(fs::is_directory(file("new/sub")));
    EXPECT_THAT(names(), testing::ElementsAre("new"));
}

TEST_P(RenameFallback, NeverReplaces)
{
    directory_.write("file", "stays");
    directory_.write("other", "stays too");
    directory_.makeDirectory("tree");
    directory_.makeDirectory("empty");
    fs::create_symlink("nowhere", file("dangling"));
    EXPECT_FALSE(rename("file", "other"));
    EXPECT_FALSE(rename("file", "empty"));
    EXPECT_FALSE(rename("file", "dangling"));
    EXPECT_FALSE(rename("tree", "empty"));
    EXPECT_FALSE(rename("tree", "file"));
    EXPECT_FALSE(rename("file", "file"));
    EXPECT_THAT(names(), testing::ElementsAre("dangling", "empty", "file", "other", "tree"));
    EXPECT_EQ(readFile(file("file")), "stays");
    EXPECT_EQ(readFile(file("other")), "stays too");
}

TEST_P(RenameFallback, FailsAsRenamingDoes)
{
    directory_.write("file", "stays");
    directory_.makeDirectory("tree");
    EXPECT_FALSE(rename("missing", "new"));
    EXPECT_FALSE(rename("file", "missing/new"));
    EXPECT_FALSE(rename("file", "file/new"));
    EXPECT_FALSE(rename("tree", "tree/new"));
    EXPECT_THAT(names(), testing::ElementsAre("file", "tree"));
}

TEST_P(RenameFallback, IsForUnknownFlagsAlone)
{
    directory_.write("file", "stays");
    for (const int error : {EEXIST, EACCES, EXDEV, ENOENT, EROFS}) {
        renameError = error;
        EXPECT_FALSE(rename("file", "new")) << error;
    }
    renameError = ENOSYS;
    EXPECT_TRUE(rename("file", "new"));
}

INSTANTIATE_TEST_SUITE_P(HardLinks, RenameFallback, testing::Values(0, EPERM),
                         [](const auto& hardLinks) {
                             return hardLinks.param == 0 ? "Known" : "Unknown";
                         });

TEST(LocalRenaming, OfAFileWhoseOldNameOthersRemoveKeepsTheFile)
{
    const TemporaryDirectory directory;
    const FileSystem::LocalFileSystem system;
    const auto source = directory.write("file", "moved");
    renameError = EINVAL;
    linkError = 0;
    // It has both names by then.
    beforeRemoving = [&] { fs::remove(source); };
    EXPECT_TRUE(system.fileRenameAs(source, directory.file("new")));
    EXPECT_FALSE(beforeRemoving) << "the test has bypassed the fallback";
    EXPECT_EQ(readFile(directory.file("new")), "moved");
}

TEST(LocalReplacing, ThatTheSystemRefusesTouchesNothing)
{
    const TemporaryDirectory directory;
    const FileSystem::LocalFileSystem system;
    const auto source = directory.write("file", "new");
    const auto target = directory.write("target", "old");
    renames = 0;
    for (const int error : {EXDEV, EACCES, EROFS, EIO, ENOSYS}) {
        replaceError = error;
        EXPECT_FALSE(system.fileReplaceAs(source, target));
        EXPECT_EQ(FileSystem::Failure::last().number(), error);
    }
    replaceError = 0;
    EXPECT_EQ(renames, 0) << "the file was missing for a moment";
}

TEST(LocalReplacing, LeavesAnotherWritersNextFileAlone)
{
    const TemporaryDirectory directory;
    const FileSystem::LocalFileSystem system;
    const auto source = directory.write("status.tmp", "this");
    const auto target = directory.write("status", "last");
    const auto time = fs::last_write_time(source);
    fs::last_write_time(target, time);
    // Nothing but its bytes tells it from the one before.
    afterRenaming = [&] {
        directory.write("status.tmp", "next");
        fs::last_write_time(source, time);
    };
    EXPECT_TRUE(system.fileReplaceAs(source, target));
    afterRenaming = nullptr;
    EXPECT_EQ(readFile(target), "this");
    ASSERT_TRUE(fs::exists(source));
    EXPECT_EQ(readFile(source), "next");
}

} // namespace

} // namespace TarnisTest
