#include "support/TemporaryDirectory.h"

#include <FileSystem/LocalFileSystem.h>

#include <gtest/gtest.h>

#include <cstdarg>
#include <filesystem>
#include <string>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// The directory that is exchanged for the link at the moment in which it is opened; empty for none.
std::string directoryToSwap;
std::string linkToSwap;
bool isSwapped = false;

void swapBeforeOpening(std::string_view path)
{
    const std::string directory = directoryToSwap;
    if (directory.empty() || fs::path(path).filename() != fs::path(directory).filename()) {
        return;
    }
    directoryToSwap.clear();
    isSwapped = ::renameat2(AT_FDCWD, directory.c_str(), AT_FDCWD, linkToSwap.c_str(),
                            RENAME_EXCHANGE) == 0;
}

int openForReal(int directory, const char* path, int flags, mode_t mode)
{
    return static_cast<int>(::syscall(SYS_openat, directory, path, flags, mode));
}

} // namespace

// Defined here, these come before libc's: the moment between looking at a directory and opening it.
extern "C" [[gnu::visibility("default")]] int openat64(int directory, const char* path, int flags,
                                                       ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
    va_end(arguments);
    swapBeforeOpening(path);
    return openForReal(directory, path, flags, mode);
}

extern "C" [[gnu::visibility("default")]] DIR* opendir(const char* path)
{
    swapBeforeOpening(path);
    const int descriptor = openForReal(AT_FDCWD, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    return descriptor == -1 ? nullptr : ::fdopendir(descriptor);
}

namespace TarnisTest {

TEST(RemovalRace, ALinkThatTakesADirectorysPlaceDoesNotLeadOutOfTheTree)
{
    const TemporaryDirectory directory;
    directory.makeDirectory("tree/swapped");
    directory.makeDirectory("outside");
    directory.write("outside/file", "stays");
    fs::create_directory_symlink(directory.file("outside"), directory.file("link"));
    linkToSwap = directory.file("link");
    directoryToSwap = directory.file("tree/swapped");
    const FileSystem::LocalFileSystem system;
    EXPECT_FALSE(system.directoryRemove(directory.file("tree"), true));
    EXPECT_TRUE(isSwapped);
    EXPECT_TRUE(system.fileExists(directory.file("outside/file")));
    EXPECT_TRUE(system.fileIsSymbolicLink(directory.file("tree/swapped")));
}

} // namespace TarnisTest
