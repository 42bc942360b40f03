// A file beyond what 32 bits count, and one without a byte.

#include "integration/sftp/SftpTest.h"
#include "support/PseudoRandom.h"
#include "support/SystemError.h"
#include "support/UniqueFd.h"

#include <FileSystem/LocalFileSystem.h>

#include <algorithm>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using Option = FileSystem::StorageSystemCopyOptionFlag;

constexpr std::uint64_t kGibibyte = 1'073'741'824;
constexpr std::uint64_t kHugeSize = 5 * kGibibyte + 12'345;

/// Where the file holds something: its ends, and where counters of 31 and 32 bits overflow.
constexpr std::uint64_t kPlaces[] = {0, 2 * kGibibyte, 4 * kGibibyte, kHugeSize};

/// Nothing but holes, except around these places.
void makeHugeFile(const std::string& path)
{
    constexpr std::uint64_t reach = 300'000;
    const UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.isOpen() || ::ftruncate(file.get(), static_cast<off_t>(kHugeSize)) != 0) {
        throwErrno("make " + path);
    }
    for (const std::uint64_t place : kPlaces) {
        const std::uint64_t begin = place - std::min(place, reach);
        const std::uint64_t end = std::min(place + reach, kHugeSize);
        const std::string bytes = pseudoRandomBytes(place, end - begin);
        if (::pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(begin)) !=
            static_cast<ssize_t>(bytes.size())) {
            throwErrno("write " + path);
        }
    }
}

/// Whether the machine can hold a copy without holes, and some more.
Availability roomFor(std::uint64_t bytes, const std::string& directory)
{
    const std::uint64_t available = fs::space(directory).available;
    return available > bytes + kGibibyte
               ? Availability::yes()
               : Availability::no("the disk of " + directory + " has only " +
                                  std::to_string(available / kGibibyte) + " GiB left");
}

::testing::AssertionResult haveTheSameBytes(const std::string& left, const std::string& right)
{
    const UniqueFd files[] = {UniqueFd(::open(left.c_str(), O_RDONLY | O_CLOEXEC)),
                              UniqueFd(::open(right.c_str(), O_RDONLY | O_CLOEXEC))};
    std::string parts[] = {std::string(4 * kMebibyte, '\0'), std::string(4 * kMebibyte, '\0')};
    for (std::uint64_t offset = 0;;) {
        ssize_t counts[] = {0, 0};
        for (int side = 0; side < 2; ++side) {
            counts[side] = ::pread(files[side].get(), parts[side].data(), parts[side].size(),
                                   static_cast<off_t>(offset));
        }
        if (counts[0] != counts[1] || counts[0] < 0 || parts[0] != parts[1]) {
            return ::testing::AssertionFailure() << "different from " << offset << " on";
        }
        if (counts[0] == 0) {
            return ::testing::AssertionSuccess();
        }
        offset += static_cast<std::uint64_t>(counts[0]);
    }
}

class HugeFileTest : public OpenSshSftpTest
{
protected:
    static constexpr auto kWithTime = Option::PreserveModTime;

    FileSystem::LocalFileSystem& local() { return local_; }

    void copyAndCompare(const FileSystem::FileSystem2& from, const FileSystem::FileSystem2& to)
    {
        if (!requireServer(roomFor(kHugeSize, directory().path()))) {
            return;
        }
        makeHugeFile(path("huge"));
        ASSERT_TRUE(local().fileSetModTime(path("huge"), timeOf(1'000'000'001)));
        std::uint64_t done = 0;
        const auto progress = [&done](std::uint64_t bytes, std::uint64_t total) {
            EXPECT_GE(bytes, done);
            EXPECT_EQ(total, kHugeSize);
            done = bytes;
            return true;
        };
        ASSERT_TRUE(from.fileCopyAs(path("huge"), to, path("copy"), progress, kWithTime));
        EXPECT_EQ(done, kHugeSize);
        EXPECT_EQ(files().fileSize(path("copy")), kHugeSize);
        EXPECT_EQ(files().fileGetModTime(path("copy")), timeOf(1'000'000'001));
        EXPECT_TRUE(haveTheSameBytes(path("huge"), path("copy")));
    }

private:
    FileSystem::LocalFileSystem local_;
};

TEST_F(HugeFileTest, GoesUpTheSame)
{
    copyAndCompare(local(), files());
}

TEST_F(HugeFileTest, ComesDownTheSame)
{
    copyAndCompare(files(), local());
}

TEST_F(HugeFileTest, IsReadAndWrittenBeyond32Bits)
{
    makeHugeFile(path("huge"));
    const auto file = files().fileOpen(path("huge"), OpenMode::Read | OpenMode::Write);
    ASSERT_NE(file, nullptr);
    const std::string text = "beyond";
    for (const std::uint64_t place : {2 * kGibibyte - 3, 4 * kGibibyte - 3, kHugeSize}) {
        ASSERT_TRUE(file->seek(place));
        EXPECT_TRUE(file->writeFully(text.data(), text.size()));
        EXPECT_EQ(file->tell(), place + text.size());
        ASSERT_TRUE(file->seek(place));
        std::string got(text.size(), '\0');
        EXPECT_EQ(file->readFully(got.data(), got.size()).count, got.size());
        EXPECT_EQ(got, text);
    }
    EXPECT_EQ(files().fileSize(path("huge")), kHugeSize + text.size());
}

TEST_F(HugeFileTest, WithoutAByteGoesUpAndComesDown)
{
    directory().write("empty", "", 0640);
    ASSERT_TRUE(local().fileSetModTime(path("empty"), timeOf(1)));
    const auto options = Option::PreserveModTime | Option::PreservePermissions;
    ASSERT_TRUE(local().fileCopyAs(path("empty"), files(), path("up"), {}, options));
    ASSERT_TRUE(files().fileCopyAs(path("up"), local(), path("down"), {}, options));
    for (const char* const name : {"up", "down"}) {
        EXPECT_EQ(fs::file_size(path(name)), 0U);
        EXPECT_EQ(fs::status(path(name)).permissions(), fs::perms(0640));
        EXPECT_EQ(local().fileGetModTime(path(name)), timeOf(1));
    }
}

} // namespace

} // namespace TarnisTest
