#include "contract/ContractTest.h"
#include "support/PseudoRandom.h"

#include <FileSystem/FileSystem2File.h>

#include <array>
#include <limits>

namespace TarnisTest {

namespace {

using FileSystem::StorageSystemFile;
using Status = FileSystem::StorageSystemReadResult::Status;

constexpr OpenMode readWriteCreate =
    OpenFlag::Read | OpenFlag::Write | OpenFlag::Create | OpenFlag::Truncate;

class OpenFileContract : public ContractTest
{
protected:
    std::unique_ptr<StorageSystemFile> openForReading(std::string_view bytes) const
    {
        return system().fileOpen(makeFile("file", bytes), OpenFlag::Read);
    }

    /// Up to `size` bytes from the position on, by one plain read.
    static std::string read(const StorageSystemFile& file, std::size_t size)
    {
        std::string bytes(size, '\0');
        bytes.resize(file.read(bytes.data(), bytes.size()));
        return bytes;
    }
};

TEST_P(OpenFileContract, ReadingMovesThePosition)
{
    const auto file = openForReading("0123456789");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(read(*file, 4), "0123");
    EXPECT_EQ(file->tell(), 4U);
    EXPECT_EQ(read(*file, 4), "4567");
    EXPECT_EQ(file->tell(), 8U);
    EXPECT_EQ(read(*file, 4), "89");
    EXPECT_EQ(file->tell(), 10U);
}

TEST_P(OpenFileContract, EndIsMetByTheReadThatFindsNothing)
{
    const auto file = openForReading("0123");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(read(*file, 4), "0123");
    EXPECT_FALSE(file->eof()) << "nobody has looked beyond the last byte";
    EXPECT_EQ(read(*file, 4), "");
    EXPECT_TRUE(file->eof());
    EXPECT_FALSE(file->error());
}

TEST_P(OpenFileContract, EmptyFileEndsAtOnce)
{
    const auto file = openForReading("");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(read(*file, 1), "");
    EXPECT_TRUE(file->eof());
}

TEST_P(OpenFileContract, SeekForgetsTheEnd)
{
    const auto file = openForReading("0123456789");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->readFully(std::string(20, ' ').data(), 20).status, Status::EndOfFile);
    EXPECT_TRUE(file->eof());
    EXPECT_TRUE(file->seek(3));
    EXPECT_FALSE(file->eof());
    EXPECT_EQ(file->tell(), 3U);
    EXPECT_EQ(read(*file, 3), "345");
}

TEST_P(OpenFileContract, ReadingNothingChangesNothing)
{
    const auto file = openForReading("0123");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(read(*file, 0), "");
    EXPECT_EQ(file->tell(), 0U);
    EXPECT_FALSE(file->eof());
    EXPECT_EQ(file->readFully(nullptr, 0).status, Status::Complete);
}

TEST_P(OpenFileContract, ReadingBeyondTheEndFindsNothing)
{
    const auto file = openForReading("0123");
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->seek(1000));
    EXPECT_EQ(file->tell(), 1000U);
    EXPECT_EQ(read(*file, 4), "");
    EXPECT_TRUE(file->eof());
}

TEST_P(OpenFileContract, WritingMovesThePosition)
{
    const auto file = system().fileOpen(path("file"), readWriteCreate);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->write("abc", 3), 3U);
    EXPECT_EQ(file->tell(), 3U);
    EXPECT_EQ(file->write("def", 3), 3U);
    EXPECT_EQ(file->tell(), 6U);
    EXPECT_EQ(contentOf(path("file")), "abcdef");
}

TEST_P(OpenFileContract, WritingNothingChangesNothing)
{
    const auto file = system().fileOpen(path("file"), readWriteCreate);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->write("", 0), 0U);
    EXPECT_TRUE(file->writeFully("", 0));
    EXPECT_EQ(file->tell(), 0U);
    EXPECT_EQ(contentOf(path("file")), "");
}

TEST_P(OpenFileContract, WritesInTheMiddle)
{
    const auto file = system().fileOpen(makeFile("file", "0123456789"), OpenFlag::Write);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->seek(4));
    EXPECT_TRUE(file->writeFully("xy", 2));
    EXPECT_EQ(contentOf(path("file")), "0123xy6789");
}

TEST_P(OpenFileContract, WritingBeyondTheEndLeavesZeros)
{
    const auto file = system().fileOpen(makeFile("file", "ab"), OpenFlag::Write);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->seek(5));
    EXPECT_TRUE(file->writeFully("yz", 2));
    EXPECT_EQ(contentOf(path("file")), std::string("ab\0\0\0yz", 7));
}

TEST_P(OpenFileContract, ReadsBackWhatItWrote)
{
    const auto file = system().fileOpen(path("file"), readWriteCreate);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->writeFully("0123456789", 10));
    EXPECT_TRUE(file->seek(2));
    EXPECT_EQ(read(*file, 3), "234");
    EXPECT_TRUE(file->seek(2));
    EXPECT_TRUE(file->writeFully("xyz", 3));
    EXPECT_TRUE(file->seek(0));
    EXPECT_EQ(read(*file, 10), "01xyz56789");
}

TEST_P(OpenFileContract, KeepsEveryByte)
{
    const std::string bytes = pseudoRandomBytes(1, 3'000'001);
    makeFile("file", bytes);
    EXPECT_EQ(system().fileSize(path("file")), bytes.size());
    EXPECT_TRUE(contentOf(path("file")) == bytes);
}

TEST_P(OpenFileContract, ReadFullyFillsTheBufferWhateverItsSize)
{
    const std::string bytes = pseudoRandomBytes(2, 1'000'000);
    const auto file = openForReading(bytes);
    ASSERT_NE(file, nullptr);
    std::string buffer(700'001, '\0');
    auto result = file->readFully(buffer.data(), buffer.size());
    EXPECT_EQ(result.status, Status::Complete);
    EXPECT_EQ(result.count, buffer.size());
    EXPECT_TRUE(buffer == bytes.substr(0, buffer.size()));
    EXPECT_EQ(file->tell(), buffer.size());

    result = file->readFully(buffer.data(), buffer.size());
    EXPECT_EQ(result.status, Status::EndOfFile);
    EXPECT_EQ(result.count, bytes.size() - buffer.size());
    EXPECT_TRUE(buffer.substr(0, result.count) == bytes.substr(buffer.size()));
}

TEST_P(OpenFileContract, ReadFullyUpToTheLastByteIsComplete)
{
    const auto file = openForReading("0123");
    ASSERT_NE(file, nullptr);
    std::array<char, 4> buffer = {};
    EXPECT_EQ(file->readFully(buffer.data(), buffer.size()).status, Status::Complete);
    const auto result = file->readFully(buffer.data(), buffer.size());
    EXPECT_EQ(result.status, Status::EndOfFile);
    EXPECT_EQ(result.count, 0U);
}

TEST_P(OpenFileContract, ReadFullyTellsAnErrorFromTheEnd)
{
    if (!require(capabilities().enforcesTheOpenMode)) {
        return;
    }
    const auto file = system().fileOpen(makeFile("file", "0123"), OpenFlag::Write);
    ASSERT_NE(file, nullptr);
    std::array<char, 4> buffer = {};
    EXPECT_EQ(file->readFully(buffer.data(), buffer.size()).status, Status::Error);
}

TEST_P(OpenFileContract, WriteFullyWritesAllWhateverTheSize)
{
    const std::string bytes = pseudoRandomBytes(3, 1'000'003);
    const auto file = system().fileOpen(path("file"), readWriteCreate);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->writeFully(bytes.data(), bytes.size()));
    EXPECT_EQ(file->tell(), bytes.size());
    EXPECT_TRUE(contentOf(path("file")) == bytes);
}

TEST_P(OpenFileContract, GoesBeyondFourGibibytes)
{
    constexpr std::uint64_t far = 5ULL << 30U;
    const auto file = system().fileOpen(path("sparse"), readWriteCreate);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->seek(far));
    EXPECT_EQ(file->tell(), far);
    EXPECT_TRUE(file->writeFully("far away", 8));
    EXPECT_EQ(file->tell(), far + 8);
    EXPECT_EQ(system().fileSize(path("sparse")), far + 8);
    EXPECT_EQ(file->size(), far + 8);

    EXPECT_TRUE(file->seek(far - 2));
    EXPECT_EQ(read(*file, 6), std::string("\0\0far ", 6));
    EXPECT_TRUE(file->seek((1ULL << 32U) - 2));
    EXPECT_EQ(read(*file, 4), std::string(4, '\0'));
    EXPECT_TRUE(file->seek(far - (1ULL << 32U)));
    EXPECT_EQ(read(*file, 8), std::string(8, '\0')) << "no byte went to the wrong 4 GiB";
}

TEST_P(OpenFileContract, AFailedSeekLeavesThePosition)
{
    if (!require(capabilities().refusesImpossiblePositions)) {
        return;
    }
    const auto file = openForReading("0123456789");
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->seek(4));
    EXPECT_FALSE(file->seek(std::numeric_limits<std::uint64_t>::max()));
    EXPECT_EQ(file->tell(), 4U);
    EXPECT_EQ(read(*file, 2), "45");
}

TEST_P(OpenFileContract, TellsWhatItsPathIsNow)
{
    const auto file = system().fileOpen(path("file"), readWriteCreate, Permissions(0600U));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->size(), 0U);
    EXPECT_TRUE(file->writeFully("12345", 5));
    EXPECT_EQ(file->size(), 5U);
    EXPECT_EQ(file->permissions(), Permissions(0600U));
    const auto info = file->fileInfo();
    EXPECT_EQ(info.fileId, path("file"));
    EXPECT_EQ(info.name, "file");
    EXPECT_EQ(info.type, Types(FileType::Regular));
    EXPECT_EQ(info.size, 5U);
}

TEST_P(OpenFileContract, TellsItsPathAloneWhenNothingIsThereAnyMore)
{
    const auto file = openForReading("0123");
    ASSERT_NE(file, nullptr);
    ASSERT_TRUE(system().fileRemove(path("file")));
    EXPECT_EQ(file->size(), 0U);
    EXPECT_TRUE(file->permissions().isEmpty());
    const auto info = file->fileInfo();
    EXPECT_EQ(info.fileId, path("file"));
    EXPECT_TRUE(info.type.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Contract, OpenFileContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
