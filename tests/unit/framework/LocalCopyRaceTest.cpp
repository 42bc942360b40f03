// What copies of this machine's files do while others change the entries that they work with.

#include "framework/ExpectFailure.h"
#include "support/TemporaryDirectory.h"

#include <FileSystem/Failure.h>
#include <FileSystem/LocalFileSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

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
            if (entry.path().extension() == ".part") {
                return entry.path();
            }
        }
        return std::nullopt;
    }

    /// Does something once, when something is known to be copied.
    static StorageSystemProgress onceAtTheStart(const std::function<void()>& change)
    {
        return [change, done = false](std::uint64_t, std::uint64_t total) mutable {
            if (total > 0 && !done) {
                done = true;
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
    directory.write("tree/file", "public", 0644);
    const auto swaps = onceAtTheStart([&] { replaceByLink(file("tree/file"), file("secret")); });
    EXPECT_FALSE(copy("tree", "copy", swaps, Option::Recursive));
    expectFailure(FailureCode::Changed, file("tree/file"));
    EXPECT_FALSE(system.fileExists(file("copy/file")));
}

TEST_F(LocalCopyRace, ASourceThatBecomesPrivateIsCopiedAsThat)
{
    for (const Options options :
         {Option::Recursive | Option::None, Option::Recursive | Option::PreservePermissions}) {
        directory.makeDirectory("tree");
        directory.write("tree/file", "placeholder", 0644);
        const auto closes = onceAtTheStart([&] {
            directory.write("tree/key", "private", 0600);
            fs::rename(file("tree/key"), file("tree/file"));
        });
        EXPECT_TRUE(copy("tree", "copy", closes, options)) << Failure::last().message();
        EXPECT_EQ(readFile(file("copy/file")), "private");
        EXPECT_EQ(modeOf("copy/file"), 0600U);
        fs::remove_all(file("copy"));
    }
}

} // namespace
} // namespace TarnisTest
