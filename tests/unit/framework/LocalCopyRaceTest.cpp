// What copies of this machine's files do while others change the entries that they work with.

#include "framework/ExpectFailure.h"
#include "support/TemporaryDirectory.h"

#include <FileSystem/Failure.h>
#include <FileSystem/LocalFileSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TarnisTest {
namespace {

namespace fs = std::filesystem;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::StorageSystemProgress;
using Option = FileSystem::StorageSystemCopyOptionFlag;
using Options = Utilities::Flags<Option>;

class LocalCopyRace : public testing::Test
{
protected:
    std::string file(const std::string& name) const { return directory.file(name); }

    unsigned modeOf(const std::string& name) const
    {
        struct stat status = {};
        EXPECT_EQ(::lstat(file(name).c_str(), &status), 0) << name;
        return status.st_mode & 07777U;
    }

    bool copy(const std::string& name, const std::string& targetName,
              const StorageSystemProgress& progress, Options options = {}) const
    {
        return system.fileCopyAs(file(name), system, file(targetName), progress, options);
    }

    /// The hidden file that a copy into the directory fills.
    std::optional<fs::path> part(const std::string& name = {}) const
    {
        for (const auto& entry : fs::directory_iterator(directory.path() / name)) {
            if (entry.path().extension() == ".tarnis-part") {
                return entry.path();
            }
        }
        return std::nullopt;
    }

    /// Does something once, when the first bytes are written. By then all entries of the first
    /// directory have been looked at.
    static StorageSystemProgress onceAfterTheFirstBytes(const std::function<void()>& change)
    {
        return [change, isDone = false](std::uint64_t done, std::uint64_t) mutable {
            if (done > 0 && !isDone) {
                isDone = true;
                change();
            }
            return true;
        };
    }

    /// Puts a link in the place of a file.
    static void replaceByLink(const fs::path& path, const std::string& target)
    {
        fs::remove(path);
        fs::create_symlink(target, path);
    }

    const TemporaryDirectory directory;
    const FileSystem::LocalFileSystem system;
};

TEST_F(LocalCopyRace, APartThatBecomesALinkIsNotPublishedAndItsTargetKeepsItsPermissions)
{
    const auto secret = directory.write("secret", "secret", 0600);
    directory.write("source", std::string(secret.size(), 'x'), 0666);
    for (const Options options : {Options(), Options(Option::PreservePermissions),
                                  Option::PreservePermissions | Option::PreserveModTime}) {
        const auto swaps = [&](std::uint64_t done, std::uint64_t total) {
            const auto hidden = part();
            if (done == total && hidden && !fs::is_symlink(*hidden)) {
                replaceByLink(*hidden, secret);
            }
            return true;
        };
        EXPECT_FALSE(copy("source", "copy", swaps, options));
        EXPECT_EQ(Failure::last().code(), FailureCode::Changed) << Failure::last().message();
        EXPECT_FALSE(system.fileExists(file("copy")));
        EXPECT_EQ(part(), std::nullopt);
        EXPECT_EQ(modeOf("secret"), 0600U);
        EXPECT_EQ(readFile(secret), "secret");
    }
}

// A file that is not the copy's own, under the copy's name: the permissions belong to the copy.
TEST_F(LocalCopyRace, PermissionsArePreservedByTheOpenFileAndNotByItsName)
{
    directory.write("source", "bytes", 0666);
    directory.write("another", "other", 0600);
    const auto swaps = [&](std::uint64_t done, std::uint64_t total) {
        const auto hidden = part();
        if (done == total && hidden) {
            fs::remove(*hidden);
            fs::create_hard_link(file("another"), *hidden);
        }
        return true;
    };
    static_cast<void>(copy("source", "copy", swaps, Option::PreservePermissions));
    EXPECT_EQ(modeOf("another"), 0600U);
}

TEST_F(LocalCopyRace, ASourceThatBecomesALinkIsNotFollowed)
{
    directory.makeDirectory("tree");
    directory.write("secret", "secret", 0600);
    directory.write("tree/before", "public", 0644);
    directory.write("tree/file", "public", 0644);
    const auto swaps =
        onceAfterTheFirstBytes([&] { replaceByLink(file("tree/file"), file("secret")); });
    EXPECT_FALSE(copy("tree", "copy", swaps, Option::Recursive));
    expectFailure(FailureCode::Changed, file("tree/file"));
    EXPECT_TRUE(system.fileExists(file("copy/before")));
    EXPECT_FALSE(system.fileExists(file("copy/file")));
}

TEST_F(LocalCopyRace, ASourceThatBecomesPrivateIsCopiedAsThat)
{
    for (const Options options :
         {Option::Recursive | Option::None, Option::Recursive | Option::PreservePermissions}) {
        directory.makeDirectory("tree");
        directory.write("tree/before", "public", 0644);
        directory.write("tree/file", "placeholder", 0644);
        const auto closes = onceAfterTheFirstBytes([&] {
            directory.write("tree/key", "private", 0600);
            fs::rename(file("tree/key"), file("tree/file"));
        });
        EXPECT_TRUE(copy("tree", "copy", closes, options)) << Failure::last().message();
        EXPECT_EQ(readFile(file("copy/file")), "private");
        EXPECT_EQ(modeOf("copy/file"), 0600U);
        fs::remove_all(file("copy"));
    }
}

TEST_F(LocalCopyRace, TheSourceItselfIsNotWrittenInPlace)
{
    directory.makeDirectory("sub");
    directory.write("sub/file", "stays");
    fs::create_directory_symlink(file("sub"), file("way"));
    fs::create_hard_link(file("sub/file"), file("other"));
    for (const auto* name : {"sub/file", "way/file", "other"}) {
        EXPECT_FALSE(copy("sub/file", name, {}, Option::InPlace));
        expectFailure(FailureCode::IntoItself, file(name));
        EXPECT_EQ(readFile(file("sub/file")), "stays");
    }
}

TEST_F(LocalCopyRace, AnotherNameOfASourceThatGrowsLosesNothingInPlace)
{
    directory.makeDirectory("tree");
    directory.makeDirectory("copy");
    directory.write("tree/before", "bytes");
    directory.write("tree/log", "line\n");
    fs::create_hard_link(file("tree/log"), file("copy/log"));
    const auto grows =
        onceAfterTheFirstBytes([&] { std::ofstream(file("tree/log"), std::ios::app) << "line\n"; });
    EXPECT_FALSE(copy("tree", "copy", grows, Option::Recursive | Option::InPlace));
    expectFailure(FailureCode::IntoItself, file("copy/log"));
    EXPECT_EQ(readFile(file("tree/log")), "line\nline\n");
}

TEST_F(LocalCopyRace, ATargetThatBecomesALinkIsNotWrittenThroughInPlace)
{
    directory.makeDirectory("tree");
    directory.makeDirectory("copy");
    directory.write("elsewhere", "stays");
    std::vector<std::string> names;
    for (int number = 0; number < 10; ++number) {
        names.push_back("copy/file" + std::to_string(number));
        directory.write("tree/file" + std::to_string(number), "new");
        directory.write(names.back(), "old");
    }
    // They have all been looked at when the first one is written.
    std::string swapped;
    const auto swaps = [&](std::uint64_t done, std::uint64_t) {
        for (const auto& name : names) {
            if (done > 0 && swapped.empty() && readFile(file(name)) == "old") {
                swapped = name;
                replaceByLink(file(name), file("elsewhere"));
            }
        }
        return true;
    };
    EXPECT_FALSE(copy("tree", "copy", swaps, Option::Recursive | Option::InPlace));
    expectFailure(FailureCode::Changed, file(swapped));
    EXPECT_EQ(readFile(file("elsewhere")), "stays");
}

TEST_F(LocalCopyRace, ATargetThatGetsThePermissionsOfAPrivateSourceInPlaceIsClosedAtOnce)
{
    directory.write("source", "private", 0600);
    directory.write("target", "old", 0644);
    const auto watches = [&](std::uint64_t done, std::uint64_t) {
        EXPECT_TRUE(done == 0 || modeOf("target") == 0600U);
        return done == 0;
    };
    EXPECT_FALSE(copy("source", "target", watches, Option::PreservePermissions | Option::InPlace));
    EXPECT_EQ(modeOf("target"), 0600U);
}

// Many files of the system say that they have a page, and hold a line.
TEST_F(LocalCopyRace, ASourceThatIsShorterThanItSaysLeavesNoOldEndInPlace)
{
    const std::string source = "/sys/kernel/mm/transparent_hugepage/enabled";
    const auto content = readFile(source);
    if (content.empty()) {
        GTEST_SKIP() << "the system has no such file";
    }
    const auto target = directory.write("target", std::string(content.size() + 50, 'o'));
    EXPECT_TRUE(system.fileCopyAs(source, system, target, {}, Option::InPlace))
        << Failure::last().message();
    EXPECT_EQ(readFile(target), content);
}

TEST_F(LocalCopyRace, APipeThatAppearsAtTheTargetIsNotReplaced)
{
    directory.write("source", "bytes");
    fs::create_symlink("source", file("link"));
    for (const auto* name : {"source", "link"}) {
        // A link has no bytes.
        const bool isAtOnce = name == std::string("link");
        const auto appears = [&](std::uint64_t done, std::uint64_t) {
            return (done == 0 && !isAtOnce) || fs::exists(file("pipe")) ||
                   ::mkfifo(file("pipe").c_str(), 0600) == 0;
        };
        EXPECT_FALSE(copy(name, "pipe", appears));
        expectFailure(FailureCode::NotCopyable, file("pipe"));
        EXPECT_TRUE(fs::is_fifo(file("pipe")));
        EXPECT_EQ(part(), std::nullopt);
        fs::remove(file("pipe"));
    }
}

TEST_F(LocalCopyRace, ATargetThatIsClosedMeanwhileStaysClosed)
{
    directory.write("source", "new", 0644);
    directory.write("target", "old", 0644);
    const auto closes =
        onceAfterTheFirstBytes([&] { EXPECT_EQ(::chmod(file("target").c_str(), 0600), 0); });
    EXPECT_TRUE(copy("source", "target", closes));
    EXPECT_EQ(readFile(file("target")), "new");
    EXPECT_EQ(modeOf("target"), 0600U);
}

TEST_F(LocalCopyRace, AnotherWritersFileOfTheSameOwnerIsReplaced)
{
    directory.write("source", "new", 0644);
    directory.write("target", "old", 0644);
    const auto writes = onceAfterTheFirstBytes([&] {
        directory.write("other", "other", 0644);
        fs::rename(file("other"), file("target"));
    });
    EXPECT_TRUE(copy("source", "target", writes)) << Failure::last().message();
    EXPECT_EQ(readFile(file("target")), "new");
}

} // namespace
} // namespace TarnisTest
