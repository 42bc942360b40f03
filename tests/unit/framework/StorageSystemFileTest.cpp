#include "framework/ScriptedFileSystem.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FileSystem2File.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using FileSystem::StorageSystemFile;
using FileSystem::StorageSystemReadResult;
using TarnisTest::ScriptedFileSystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using Mode = FileSystem::StorageSystemFileOpenModeFlag;
using Modes = Utilities::Flags<Mode>;
using Status = StorageSystemReadResult::Status;

namespace {

using Reports = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

/// Bytes of which no stretch looks like another.
std::string variedBytes(std::size_t size)
{
    std::string bytes;
    bytes.reserve(size + 16);
    while (bytes.size() < size) {
        bytes += std::to_string(bytes.size()) + ",";
    }
    bytes.resize(size);
    return bytes;
}

class OpenFile : public testing::Test
{
protected:
    std::unique_ptr<StorageSystemFile> open(const std::string& path)
    {
        auto file = system.fileOpen(path, Mode::Read | Mode::Write | Mode::Create);
        EXPECT_NE(file, nullptr);
        system.calls().clear();
        return file;
    }

    std::unique_ptr<StorageSystemFile> openWith(const std::string& bytes)
    {
        system.addFile("/file", bytes);
        return open("/file");
    }

    /// Collects what a copy reports, and stops it after `stopAfter` reports.
    FileSystem::StorageSystemProgress collectReports(std::size_t stopAfter = 1'000)
    {
        return [this, stopAfter](std::uint64_t done, std::uint64_t total) {
            reports.emplace_back(done, total);
            return reports.size() < stopAfter;
        };
    }

    ScriptedFileSystem system;
    Reports reports;
};

} // namespace

TEST_F(OpenFile, KnowsItsPathAndItsFileSystem)
{
    system.addFile("/a/b.txt", "text");
    const auto file = open("/a/b.txt");
    EXPECT_TRUE(file->isValid());
    EXPECT_FALSE(file->error());
    EXPECT_EQ(file->fileId(), "/a/b.txt");
    EXPECT_EQ(file->name(), "b.txt");
    EXPECT_EQ(file->parentDirectoryId(), "/a");
    EXPECT_TRUE(file->mode().has(Mode::Create));
    EXPECT_EQ(&file->storageSystem(), &system);
    EXPECT_EQ(&dynamic_cast<FileSystem::FileSystem2File&>(*file).fileSystem(), &system);
}

TEST_F(OpenFile, TellsWhatItsPathHasNow)
{
    system.addFile("/file", "12345", 0640);
    const auto file = open("/file");
    EXPECT_EQ(file->size(), 5U);
    EXPECT_EQ(file->permissions().raw(), 0640U);
    const auto info = file->fileInfo();
    EXPECT_EQ(info.fileId, "/file");
    EXPECT_EQ(info.name, "file");
    EXPECT_EQ(info.parentDirectoryId, "/");
    EXPECT_TRUE(isRegularFile(info.type));
    EXPECT_EQ(info.modTime, system.at("/file").modTime);
}

TEST_F(OpenFile, OpenedThroughALinkTellsAboutWhatTheLinkLeadsTo)
{
    system.addFile("/real", "1234567", 0600);
    system.addLink("/link", "real");
    const auto file = open("/link");
    EXPECT_EQ(file->size(), 7U);
    EXPECT_EQ(file->permissions().raw(), 0600U);
    EXPECT_EQ(file->fileInfo().fileId, "/link");
    EXPECT_TRUE(isRegularFile(file->fileInfo().type));
}

TEST_F(OpenFile, WhosePathIsGoneTellsThePathAlone)
{
    const auto file = openWith("bytes");
    ASSERT_TRUE(system.fileRemove("/file"));
    EXPECT_EQ(file->size(), 0U);
    EXPECT_TRUE(file->permissions().isEmpty());
    const auto info = file->fileInfo();
    EXPECT_EQ(info.fileId, "/file");
    EXPECT_EQ(info.name, "file");
    EXPECT_TRUE(info.type.isEmpty());
}

TEST_F(OpenFile, ReadAndWriteArePassedOnAsTheyAre)
{
    const auto file = openWith(std::string(600'000, 'x'));
    std::string buffer(600'000, '\0');
    EXPECT_EQ(file->read(buffer.data(), buffer.size()), buffer.size());
    EXPECT_EQ(file->write(buffer.data(), buffer.size()), buffer.size());
    EXPECT_THAT(system.calls(), ElementsAre("read 600000 /file", "write 600000 /file"));
    EXPECT_EQ(file->tell(), 1'200'000U);
}

TEST_F(OpenFile, ReadFullyFillsTheBufferHoweverLittleEachReadBrings)
{
    const auto bytes = variedBytes(10'000);
    const auto file = openWith(bytes);
    system.behaviour.longestRead = 7;
    std::string buffer(9'999, '\0');
    const auto result = file->readFully(buffer.data(), buffer.size());
    EXPECT_EQ(result.status, Status::Complete);
    EXPECT_EQ(result.count, buffer.size());
    EXPECT_EQ(buffer, bytes.substr(0, 9'999));
    EXPECT_EQ(file->tell(), 9'999U);
}

TEST_F(OpenFile, ReadFullyAsksForNoMoreThanEveryServerGives)
{
    const auto bytes = variedBytes(600'000);
    const auto file = openWith(bytes);
    std::string buffer(bytes.size(), '\0');
    EXPECT_EQ(file->readFully(buffer.data(), buffer.size()).status, Status::Complete);
    EXPECT_EQ(buffer, bytes);
    EXPECT_THAT(system.calls(),
                ElementsAre("read 229376 /file", "read 229376 /file", "read 141248 /file"));
}

TEST_F(OpenFile, ReadFullyAsksForNoMoreThanItWasGivenThreeTimes)
{
    const auto bytes = variedBytes(400'000);
    const auto file = openWith(bytes);
    system.behaviour.longestRead = 32'768;
    std::string buffer(200'000, '\0');
    EXPECT_EQ(file->readFully(buffer.data(), buffer.size()).status, Status::Complete);
    EXPECT_EQ(buffer, bytes.substr(0, buffer.size()));
    EXPECT_THAT(system.calls(),
                ElementsAre("read 200000 /file", "read 167232 /file", "read 134464 /file",
                            "read 32768 /file", "read 32768 /file", "read 32768 /file",
                            "read 3392 /file"));
}

TEST_F(OpenFile, ReadFullyDoesNotAskForLittleAfterOneShortAnswer)
{
    const auto file = openWith(variedBytes(100'000));
    system.behaviour.shortReads = {{0, 100}, {100, 200}, {300, 100}, {400, 100}};
    std::string buffer(100'000, '\0');
    EXPECT_EQ(file->readFully(buffer.data(), buffer.size()).status, Status::Complete);
    EXPECT_THAT(system.calls(),
                ElementsAre("read 100000 /file", "read 99900 /file", "read 99700 /file",
                            "read 99600 /file", "read 99500 /file"));
}

TEST_F(OpenFile, ReadFullyAsksForMoreThanATrickle)
{
    const auto file = openWith(variedBytes(10'000));
    system.behaviour.longestRead = 1'000;
    std::string buffer(6'000, '\0');
    EXPECT_EQ(file->readFully(buffer.data(), buffer.size()).status, Status::Complete);
    EXPECT_THAT(system.calls(),
                ElementsAre("read 6000 /file", "read 5000 /file", "read 4000 /file",
                            "read 3000 /file", "read 2000 /file", "read 1000 /file"));
}

TEST_F(OpenFile, ReadFullyTellsTheEndOfTheFile)
{
    const auto file = openWith("12345");
    std::string buffer(10, 'x');
    const auto result = file->readFully(buffer.data(), buffer.size());
    EXPECT_EQ(result.status, Status::EndOfFile);
    EXPECT_EQ(result.count, 5U);
    EXPECT_EQ(buffer, "12345xxxxx");
    EXPECT_EQ(file->readFully(buffer.data(), 1).status, Status::EndOfFile);
}

TEST_F(OpenFile, ReadFullyOfExactlyTheRestIsComplete)
{
    const auto file = openWith("12345");
    std::string buffer(5, '\0');
    const auto result = file->readFully(buffer.data(), buffer.size());
    EXPECT_EQ(result.status, Status::Complete);
    EXPECT_EQ(result.count, 5U);
    EXPECT_FALSE(file->eof());
}

TEST_F(OpenFile, ReadFullyIsCompleteThoughTheEndIsToldWithTheLastByte)
{
    const auto file = openWith("12345");
    system.behaviour.endsEarly = true;
    std::string buffer(6, '\0');
    EXPECT_EQ(file->readFully(buffer.data(), 5).status, Status::Complete);
    ASSERT_TRUE(file->seek(0));
    system.calls().clear();
    const auto result = file->readFully(buffer.data(), 6);
    EXPECT_EQ(result.status, Status::EndOfFile);
    EXPECT_EQ(result.count, 5U);
    EXPECT_THAT(system.calls(), ElementsAre("read 6 /file"));
}

TEST_F(OpenFile, ReadFullyTellsAFailureFromTheEnd)
{
    const auto file = openWith("1234567890");
    system.behaviour.unreadableFrom = 4;
    std::string buffer(10, 'x');
    const auto result = file->readFully(buffer.data(), buffer.size());
    EXPECT_EQ(result.status, Status::Error);
    EXPECT_EQ(result.count, 4U);
    EXPECT_EQ(buffer.substr(0, 4), "1234");
}

TEST_F(OpenFile, ReadFullyDoesNotTakeAnOldEndForANewOne)
{
    const auto file = openWith("12345");
    std::string buffer(10, 'x');
    EXPECT_EQ(file->readFully(buffer.data(), 10).status, Status::EndOfFile);
    system.behaviour.readingAtTheEndFails = true;
    const auto result = file->readFully(buffer.data(), 10);
    EXPECT_EQ(result.status, Status::Error);
    EXPECT_EQ(result.count, 0U);
}

TEST_F(OpenFile, ReadFullyDoesNotTakeAShortReadForAnOldEnd)
{
    const auto file = openWith("12345");
    std::string buffer(10, 'x');
    EXPECT_EQ(file->readFully(buffer.data(), 10).status, Status::EndOfFile);
    const auto other = system.fileOpen(file->fileId(), Mode::Write);
    ASSERT_TRUE(other->seek(5) && other->writeFully("67890", 5));
    system.behaviour.longestRead = 2;
    const auto result = file->readFully(buffer.data(), 5);
    EXPECT_EQ(result.status, Status::Complete);
    EXPECT_EQ(buffer.substr(0, 5), "67890");
}

TEST_F(OpenFile, ReadFullyOfNothingAsksNobody)
{
    const auto file = openWith("12345");
    const auto result = file->readFully(nullptr, 0);
    EXPECT_EQ(result.status, Status::Complete);
    EXPECT_EQ(result.count, 0U);
    EXPECT_THAT(system.calls(), IsEmpty());
}

TEST_F(OpenFile, ReadFullyDistrustsACountThatIsTooLarge)
{
    const auto file = openWith("12345");
    system.behaviour.overcounts = true;
    char byte = 0;
    const auto result = file->readFully(&byte, 1);
    EXPECT_EQ(result.status, Status::Error);
    EXPECT_EQ(result.count, 0U);
}

TEST_F(OpenFile, WriteFullyGoesOnAfterShortWrites)
{
    const auto bytes = variedBytes(10'000);
    const auto file = openWith("");
    system.behaviour.longestWrite = 13;
    EXPECT_TRUE(file->writeFully(bytes.data(), bytes.size()));
    EXPECT_EQ(system.bytesOf("/file"), bytes);
}

TEST_F(OpenFile, WriteFullyWritesNoMoreAtOnceThanEveryServerTakes)
{
    const auto bytes = variedBytes(600'000);
    const auto file = openWith("");
    EXPECT_TRUE(file->writeFully(bytes.data(), bytes.size()));
    EXPECT_EQ(system.bytesOf("/file"), bytes);
    EXPECT_THAT(system.calls(),
                ElementsAre("write 256000 /file", "write 256000 /file", "write 88000 /file"));
}

TEST_F(OpenFile, WriteFullyFailsWhenAWriteDoes)
{
    const auto file = openWith("");
    system.behaviour.unwritableFrom = 4;
    EXPECT_FALSE(file->writeFully("1234567890", 10));
    EXPECT_TRUE(file->writeFully(nullptr, 0));
    system.behaviour.overcounts = true;
    EXPECT_FALSE(file->writeFully("1", 1));
}

TEST_F(OpenFile, CopyMovesAllBytesFromTheStartToTheTargetsPosition)
{
    const auto bytes = variedBytes(100'000);
    const auto source = openWith(bytes);
    const auto target = open("/target");
    ASSERT_TRUE(source->seek(500));
    ASSERT_TRUE(target->writeFully("head:", 5));
    system.behaviour.longestRead = 999;
    system.behaviour.longestWrite = 777;
    EXPECT_TRUE(source->copy(*target));
    EXPECT_EQ(system.bytesOf("/target"), "head:" + bytes);
    EXPECT_EQ(target->tell(), 100'005U);
}

TEST_F(OpenFile, CopyReportsTheStartEveryStepAndTheEnd)
{
    const auto source = openWith(std::string(25, 'x'));
    const auto target = open("/target");
    EXPECT_TRUE(source->copy(*target, collectReports(), 10));
    EXPECT_THAT(reports,
                ElementsAre(Pair(0, 25), Pair(10, 25), Pair(20, 25), Pair(25, 25), Pair(25, 25)));
}

TEST_F(OpenFile, CopyOfAnEmptyFileReportsStartAndEnd)
{
    const auto source = openWith("");
    const auto target = open("/target");
    EXPECT_TRUE(source->copy(*target, collectReports()));
    EXPECT_THAT(reports, ElementsAre(Pair(0, 0), Pair(0, 0)));
}

TEST_F(OpenFile, CopyStopsAtAnyReportThatSaysSo)
{
    for (std::size_t stop = 1; stop <= 5; ++stop) {
        const auto source = openWith(std::string(25, 'x'));
        const auto target = open("/target");
        reports.clear();
        EXPECT_FALSE(source->copy(*target, collectReports(stop), 10)) << stop;
        EXPECT_EQ(reports.size(), stop);
    }
}

TEST_F(OpenFile, CopyPassesOnWhatTheProgressThrowsAndCanBeCalledAgain)
{
    const auto source = openWith("bytes");
    const auto target = open("/target");
    const auto throws = [](std::uint64_t, std::uint64_t) -> bool {
        throw std::logic_error("enough");
    };
    EXPECT_THROW(static_cast<void>(source->copy(*target, throws)), std::logic_error);
    EXPECT_TRUE(source->copy(*target));
    EXPECT_EQ(system.bytesOf("/target"), "bytes");
}

TEST_F(OpenFile, CopyFailsWhenAReadOrAWriteDoes)
{
    const auto source = openWith(std::string(100, 'x'));
    const auto target = open("/target");
    system.behaviour.unreadableFrom = 50;
    EXPECT_FALSE(source->copy(*target));
    system.behaviour.unreadableFrom = 1'000;
    system.behaviour.unwritableFrom = 50;
    EXPECT_FALSE(source->copy(*target));
}

TEST_F(OpenFile, CopyOntoItselfFails)
{
    const auto file = openWith("bytes");
    EXPECT_FALSE(file->copy(*file));
    EXPECT_EQ(system.bytesOf("/file"), "bytes");
}

TEST_F(OpenFile, CopyTakesABufferSizeOfZeroForTheDefault)
{
    const auto source = openWith(std::string(100, 'x'));
    const auto target = open("/target");
    EXPECT_TRUE(source->copy(*target, collectReports(), 0));
    EXPECT_THAT(reports, ElementsAre(Pair(0, 100), Pair(100, 100), Pair(100, 100)));
}

TEST_F(OpenFile, CopyTakesNoBufferOfAnAbsurdSize)
{
    const auto source = openWith("bytes");
    const auto target = open("/target");
    EXPECT_TRUE(source->copy(*target, {}, ~std::uint64_t{0}));
    EXPECT_EQ(system.bytesOf("/target"), "bytes");
}

TEST_F(OpenFile, CopyWithoutProgressDoesNotAskForTheSize)
{
    const auto source = openWith("bytes");
    const auto target = open("/target");
    EXPECT_TRUE(source->copy(*target));
    EXPECT_THAT(system.calls(), Not(Contains("info /file")));
}

/// Of any system at all: the file class does nothing for it.
TEST(OpenFileOfASystemThatIsGone, IsInvalidAndFailsCleanly)
{
    auto system = std::make_unique<ScriptedFileSystem>();
    system->addFile("/a/file", "bytes");
    const auto opened = system->fileOpen("/a/file", Mode::Read);
    const auto created = system->fileCreateAs("/a/new", true, false);
    ASSERT_TRUE(opened != nullptr && created != nullptr);
    EXPECT_TRUE(opened->isValid());
    EXPECT_EQ(&opened->storageSystem(), system.get());
    system.reset();
    for (auto* const file : {opened.get(), created.get()}) {
        char byte = 0;
        EXPECT_FALSE(file->isValid());
        EXPECT_TRUE(file->error());
        EXPECT_EQ(file->read(&byte, 1), 0U);
        EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::ConnectionLost);
        EXPECT_EQ(file->readFully(&byte, 1).status, Status::Error);
        EXPECT_EQ(file->write(&byte, 1), 0U);
        std::vector<FileSystem::StorageSystemReadRange> ranges{{0, &byte, 1, {}}};
        EXPECT_FALSE(file->readRanges(ranges));
        EXPECT_EQ(ranges[0].result.status, Status::Error);
        EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::ConnectionLost);
        EXPECT_FALSE(file->writeRanges({{0, &byte, 1}}));
        EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::ConnectionLost);
        EXPECT_FALSE(file->close());
        EXPECT_FALSE(file->seek(0));
        EXPECT_FALSE(file->tell());
        EXPECT_EQ(file->size(), 0U);
        EXPECT_EQ(file->parentDirectoryId(), "/a");
        EXPECT_EQ(file->fileInfo().fileId, file->fileId());
        EXPECT_FALSE(file->storageSystem().isValid());
        EXPECT_FALSE(file->storageSystem().fileExists("/a/file"));
    }
    EXPECT_FALSE(opened->copy(*created));
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::ConnectionLost);
}

TEST_F(OpenFile, CopyFailsWhenThePositionOfTheTargetIsNotKnown)
{
    ScriptedFileSystem lost;
    lost.addFile("/target", "");
    const auto target = lost.fileOpen("/target", Mode::Read | Mode::Write);
    const auto source = openWith("bytes");
    lost.behaviour.isValid = false;
    EXPECT_FALSE(source->copy(*target));
}

namespace {

/// Copies between two systems of which either, both or none have ranges of their own.
class RangeCopy : public OpenFile
{
protected:
    std::unique_ptr<StorageSystemFile> openTarget(Modes mode = Mode::Write | Mode::Create)
    {
        auto file = other.fileOpen("/target", mode);
        EXPECT_NE(file, nullptr);
        other.calls().clear();
        return file;
    }

    ScriptedFileSystem other;
};

} // namespace

TEST_F(RangeCopy, TakesTheRangesOfWhicheverSideHasThem)
{
    const auto bytes = variedBytes(50'000);
    for (const bool sourceHas : {false, true}) {
        for (const bool targetHas : {false, true}) {
            system.behaviour.hasRanges = sourceHas;
            other.behaviour.hasRanges = targetHas;
            const auto source = openWith(bytes);
            const auto target = openTarget();
            EXPECT_TRUE(source->copy(*target, {}, 20'000));
            EXPECT_EQ(other.bytesOf("/target"), bytes);
            EXPECT_EQ(testing::Value(system.calls(), Contains("range.read 20000+20000 /file")),
                      sourceHas);
            EXPECT_EQ(testing::Value(other.calls(), Contains("range.write 20000+20000 /target")),
                      targetHas);
            EXPECT_EQ(target->tell(), 50'000U);
        }
    }
}

TEST_F(RangeCopy, StartsAtTheTargetsPositionAndLeavesItBehindTheBytes)
{
    other.behaviour.hasRanges = true;
    const auto source = openWith("12345");
    const auto target = openTarget();
    ASSERT_TRUE(target->writeFully("head:", 5));
    EXPECT_TRUE(source->copy(*target));
    EXPECT_EQ(other.bytesOf("/target"), "head:12345");
    EXPECT_TRUE(target->writeFully(":tail", 5));
    EXPECT_EQ(other.bytesOf("/target"), "head:12345:tail");
}

TEST_F(RangeCopy, GoesOnWhereASystemIsAbleToNoMoreRanges)
{
    const auto bytes = variedBytes(50'000);
    system.behaviour.hasRanges = other.behaviour.hasRanges = true;
    const auto source = openWith(bytes);
    const auto target = openTarget();
    const auto stopBeingAble = [this](std::uint64_t done, std::uint64_t /*total*/) {
        system.behaviour.hasRanges = other.behaviour.hasRanges = done == 0;
        return true;
    };
    EXPECT_TRUE(source->copy(*target, stopBeingAble, 20'000));
    EXPECT_EQ(other.bytesOf("/target"), bytes);
    EXPECT_THAT(system.calls(), Contains("range.read 0+20000 /file"));
    EXPECT_THAT(system.calls(), Not(Contains("range.read 20000+20000 /file")));
}

TEST_F(RangeCopy, StartsAtTheBeginningOfTheSource)
{
    system.behaviour.hasRanges = true;
    const auto source = openWith("12345");
    ASSERT_TRUE(source->seek(3));
    EXPECT_TRUE(source->copy(*openTarget()));
    EXPECT_EQ(other.bytesOf("/target"), "12345");
}

TEST_F(RangeCopy, AppendsToAFileThatIsAppendedTo)
{
    other.behaviour.hasRanges = true;
    other.addFile("/target", "");
    const auto source = openWith("12345");
    const auto target = openTarget(Mode::Write | Mode::Append);
    EXPECT_TRUE(source->copy(*target));
    EXPECT_EQ(other.bytesOf("/target"), "12345");
    EXPECT_THAT(other.calls(), ElementsAre("write 5 /target"));
}

TEST_F(RangeCopy, FailsWhenARangeDoes)
{
    system.behaviour.hasRanges = true;
    other.behaviour.hasRanges = true;
    const auto source = openWith("12345");
    const auto target = openTarget();
    other.behaviour.unwritableFrom = 3;
    EXPECT_FALSE(source->copy(*target));
    other.behaviour.unwritableFrom = 1'000;
    system.behaviour.unreadableFrom = 3;
    EXPECT_FALSE(source->copy(*target));
}

TEST_F(RangeCopy, DistrustsARangeThatCallsAPartComplete)
{
    system.behaviour.hasRanges = true;
    system.behaviour.rangesClaimComplete = true;
    const auto source = openWith("12345");
    const auto target = openTarget();
    EXPECT_FALSE(source->copy(*target));
}

namespace {

using FileSystem::StorageSystemReadRange;
using FileSystem::StorageSystemWriteRange;

/// Ranges of a file whose system has none of its own.
class Ranges : public OpenFile
{
protected:
    /// Reads them all, each into a text of its own.
    bool read(const StorageSystemFile& file, std::vector<StorageSystemReadRange>& ranges)
    {
        texts.clear();
        for (auto& range : ranges) {
            texts.emplace_back(range.size, 'x');
        }
        for (std::size_t index = 0; index < ranges.size(); ++index) {
            ranges[index].buffer = texts[index].data();
        }
        return file.readRanges(ranges);
    }

    static StorageSystemReadRange at(std::uint64_t offset, std::uint64_t size)
    {
        return {offset, nullptr, size, {}};
    }

    static StorageSystemWriteRange at(std::uint64_t offset, const std::string& bytes)
    {
        return {offset, bytes.data(), bytes.size()};
    }

    std::vector<std::string> texts;
};

} // namespace

TEST_F(Ranges, AreReadOneAfterTheOtherAndThePositionStays)
{
    const auto file = openWith("0123456789");
    ASSERT_TRUE(file->seek(4));
    std::vector<StorageSystemReadRange> ranges{at(7, 2), at(0, 3), at(1, 4)};
    EXPECT_TRUE(read(*file, ranges));
    EXPECT_THAT(texts, ElementsAre("78", "012", "1234"));
    for (const auto& range : ranges) {
        EXPECT_EQ(range.result.status, Status::Complete);
        EXPECT_EQ(range.result.count, range.size);
    }
    EXPECT_EQ(file->tell(), 4U);
}

TEST_F(Ranges, ThatReachBeyondTheEndAreCutThere)
{
    const auto file = openWith("0123456789");
    std::vector<StorageSystemReadRange> ranges{at(8, 5), at(10, 1), at(1'000, 1), at(2, 1)};
    EXPECT_TRUE(read(*file, ranges));
    EXPECT_THAT(texts, ElementsAre("89xxx", "x", "x", "2"));
    EXPECT_EQ(ranges[0].result.count, 2U);
    for (std::size_t index = 0; index < 3; ++index) {
        EXPECT_EQ(ranges[index].result.status, Status::EndOfFile) << index;
    }
    EXPECT_EQ(ranges[1].result.count + ranges[2].result.count, 0U);
    EXPECT_EQ(ranges[3].result.status, Status::Complete);
}

TEST_F(Ranges, OfNoBytesAreDoneAndNoRangesToo)
{
    const auto file = openWith("0123456789");
    std::vector<StorageSystemReadRange> ranges;
    EXPECT_TRUE(file->readRanges(ranges));
    EXPECT_TRUE(file->writeRanges({}));
    ranges = {{1'000, nullptr, 0, {}}};
    EXPECT_TRUE(file->readRanges(ranges));
    EXPECT_EQ(ranges[0].result.status, Status::Complete);
    EXPECT_EQ(ranges[0].result.count, 0U);
    EXPECT_TRUE(file->writeRanges({{1'000, nullptr, 0}}));
    EXPECT_EQ(system.bytesOf("/file"), "0123456789");
}

TEST_F(Ranges, OfWhichOneFailsAreRightOtherwise)
{
    const auto file = openWith("0123456789");
    ASSERT_TRUE(file->seek(1));
    system.behaviour.unreadableFrom = 6;
    std::vector<StorageSystemReadRange> ranges{at(0, 2), at(4, 4), at(2, 2)};
    EXPECT_FALSE(read(*file, ranges));
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::Other);
    EXPECT_EQ(ranges[0].result.status, Status::Complete);
    EXPECT_EQ(ranges[1].result.status, Status::Error);
    EXPECT_EQ(ranges[1].result.count, 2U);
    EXPECT_EQ(ranges[2].result.status, Status::Complete);
    EXPECT_THAT(texts, ElementsAre("01", "45xx", "23"));
    EXPECT_EQ(file->tell(), 1U);
}

TEST_F(Ranges, AreWrittenInTheirOrderAndThePositionStays)
{
    const auto file = openWith("0123456789");
    ASSERT_TRUE(file->seek(4));
    const std::string first = "aaaa";
    const std::string second = "bb";
    const std::string behind = "c";
    EXPECT_TRUE(file->writeRanges({at(2, first), at(3, second), at(12, behind)}));
    EXPECT_EQ(system.bytesOf("/file"), std::string("01abba6789\0\0c", 13));
    EXPECT_EQ(file->tell(), 4U);
}

TEST_F(Ranges, AreNotWrittenAfterAFailure)
{
    const auto file = openWith("0123456789");
    system.behaviour.unwritableFrom = 6;
    const std::string bytes = "aa";
    EXPECT_FALSE(file->writeRanges({at(0, bytes), at(7, bytes), at(2, bytes)}));
    EXPECT_EQ(system.bytesOf("/file"), "aa23456789");
    EXPECT_EQ(file->tell(), 0U);
}

TEST_F(Ranges, OfAFileThatIsAppendedToAreNotWritten)
{
    system.addFile("/log", "old");
    for (const bool has : {false, true}) {
        system.behaviour.hasRanges = has;
        const auto file = system.fileOpen("/log", Mode::Read | Mode::Write | Mode::Append);
        ASSERT_NE(file, nullptr);
        const std::string bytes = "new";
        EXPECT_FALSE(file->writeRanges({at(0, bytes)}));
        EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::Unsupported);
        EXPECT_EQ(system.bytesOf("/log"), "old");
        std::vector<StorageSystemReadRange> ranges{at(0, 3)};
        EXPECT_TRUE(read(*file, ranges));
        EXPECT_THAT(texts, ElementsAre("old"));
    }
}

TEST_F(Ranges, ThatEndBeyondWhatCanBeCountedAreRefusedTogether)
{
    const auto file = openWith("0123456789");
    std::vector<StorageSystemReadRange> ranges{at(0, 2), at(~std::uint64_t{0}, 1)};
    EXPECT_FALSE(read(*file, ranges));
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::TooLarge);
    EXPECT_EQ(ranges[0].result.status, Status::Error);
    EXPECT_FALSE(file->writeRanges({{~std::uint64_t{0}, "x", 1}}));
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::TooLarge);
    EXPECT_THAT(system.calls(), IsEmpty());
}

TEST_F(Ranges, GoToASystemThatHasThem)
{
    const auto file = openWith("0123456789");
    system.behaviour.hasRanges = true;
    std::vector<StorageSystemReadRange> ranges{at(8, 5), at(0, 1)};
    EXPECT_TRUE(read(*file, ranges));
    EXPECT_EQ(ranges[0].result.status, Status::EndOfFile);
    EXPECT_THAT(system.calls(), ElementsAre("range.read 8+5 /file", "range.read 0+1 /file"));
    system.calls().clear();
    const std::string bytes = "aa";
    EXPECT_TRUE(file->writeRanges({at(3, bytes)}));
    EXPECT_THAT(system.calls(), ElementsAre("range.write 3+2 /file"));
}

TEST_F(Ranges, AreNotMovedWhereThePositionIsNotKnown)
{
    const auto file = openWith("0123456789");
    system.behaviour.isValid = false;
    std::vector<StorageSystemReadRange> ranges{at(0, 2)};
    EXPECT_FALSE(read(*file, ranges));
    EXPECT_EQ(ranges[0].result.status, Status::Error);
    EXPECT_FALSE(file->writeRanges({{0, "x", 1}}));
    EXPECT_EQ(system.bytesOf("/file"), "0123456789");
}
