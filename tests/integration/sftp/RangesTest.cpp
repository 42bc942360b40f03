// Ranges of open files, with servers that answer in any order, in part, with refusals, or not.

#include "integration/sftp/FailureCause.h"
#include "integration/sftp/SftpTest.h"
#include "support/PseudoRandom.h"
#include "support/WaitUntil.h"

#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TarnisTest {

namespace {

using FileSystem::StorageSystemFile;
using FileSystem::StorageSystemReadRange;
using FileSystem::StorageSystemWriteRange;
using ReadStatus = FileSystem::StorageSystemReadResult::Status;

class RangesTest : public ScriptedSftpTest
{
protected:
    static SftpScript answeringIn(SftpOrder order, std::uint64_t held)
    {
        SftpScript script;
        script.order = order;
        script.heldReplies = held;
        return script;
    }

    std::unique_ptr<StorageSystemFile> open(const std::string& content)
    {
        auto file = files().fileOpen(put("file", content), OpenMode::Read | OpenMode::Write);
        EXPECT_NE(file, nullptr);
        return file;
    }

    bool read(const StorageSystemFile& file,
              const std::vector<std::pair<std::uint64_t, std::size_t>>& places)
    {
        texts_.assign(places.size(), {});
        ranges_.clear();
        for (std::size_t index = 0; index < places.size(); ++index) {
            texts_[index].assign(places[index].second, 'x');
            ranges_.push_back(
                {places[index].first, texts_[index].data(), places[index].second, {}});
        }
        return file.readRanges(ranges_);
    }

    void expectRange(std::size_t index, const std::string& expected, ReadStatus status) const
    {
        EXPECT_EQ(ranges_[index].result.status, status) << index;
        EXPECT_EQ(ranges_[index].result.count, expected.size()) << index;
        EXPECT_TRUE(texts_[index].substr(0, expected.size()) == expected) << index;
    }

    /// Ends a reading that gets no answer in this way.
    void expectEndBy(const std::function<void()>& end)
    {
        const auto file = open(std::string(500'000, 's'));
        SftpScript silent;
        silent.rules = {{from(SftpPacket::Read, 4), SftpActions::silence()}};
        server().sftp().setScript(silent);
        auto reading = std::async(std::launch::async, [&] {
            EXPECT_FALSE(read(*file, {{0, 200'000}, {1, 9}}));
            return Failure::last();
        });
        EXPECT_TRUE(waitUntil([&] { return server().sftp().requestCount(SftpPacket::Read) >= 4; }));
        end();
        ASSERT_EQ(reading.wait_for(kGenerousLimit), std::future_status::ready);
        const auto failure = reading.get();
        EXPECT_EQ(failure.code(), FailureCode::ConnectionLost) << failure.message();
        EXPECT_EQ(ranges_[0].result.status, ReadStatus::Error);
        EXPECT_EQ(ranges_[1].result.status, ReadStatus::Error);
        EXPECT_TRUE(texts_[0].substr(0, ranges_[0].result.count) ==
                    std::string(ranges_[0].result.count, 's'));
    }

    std::vector<std::string> texts_;
    std::vector<StorageSystemReadRange> ranges_;
};

} // namespace

TEST_F(RangesTest, AreReadTogetherInWhateverOrderTheyAreAnswered)
{
    start(answeringIn(SftpOrder::Reversed, 8));
    const std::string content = pseudoRandomBytes(41, 3'000'000);
    const auto file = open(content);
    ASSERT_TRUE(file->seek(12));
    EXPECT_TRUE(read(*file, {{1'000'000, 900'000}, {5, 10}, {2'999'990, 100}, {4'000'000, 1}}));
    expectRange(0, content.substr(1'000'000, 900'000), ReadStatus::Complete);
    expectRange(1, content.substr(5, 10), ReadStatus::Complete);
    expectRange(2, content.substr(2'999'990), ReadStatus::EndOfFile);
    expectRange(3, "", ReadStatus::EndOfFile);
    EXPECT_EQ(file->tell(), 12U);
    EXPECT_GE(server().sftp().mostInFlight(SftpPacket::Read), 8U);
}

TEST_F(RangesTest, AreWrittenTogetherAndWhereTheyOverlapInTheirOrder)
{
    SftpScript script;
    script.order = SftpOrder::Reversed;
    script.heldRequest = SftpPacket::Write;
    start(script);
    const auto file = open("0123456789");
    ASSERT_TRUE(file->seek(3));
    const std::string first = pseudoRandomBytes(42, 1'000'000);
    const std::string second(100'000, 'b');
    EXPECT_TRUE(file->writeRanges(
        {{20, first.data(), first.size()}, {500'000, second.data(), second.size()}}));
    EXPECT_EQ(file->tell(), 3U);
    std::string expected = "0123456789" + std::string(10, '\0') + first;
    expected.replace(500'000, second.size(), second);
    EXPECT_TRUE(readFile(path("file")) == expected);
    EXPECT_GE(server().sftp().mostInFlight(SftpPacket::Write), 4U);
}

TEST_F(RangesTest, AreCompleteThoughAnswersAreShort)
{
    SftpScript script;
    script.maxReadReply = 20'000;
    start(script);
    const std::string content = pseudoRandomBytes(43, 1'000'000);
    const auto file = open(content);
    EXPECT_TRUE(read(*file, {{0, 1'000'001}, {7, 40'000}}));
    expectRange(0, content, ReadStatus::EndOfFile);
    expectRange(1, content.substr(7, 40'000), ReadStatus::Complete);
}

TEST_F(RangesTest, OfWhichOneIsRefusedAreRightOtherwise)
{
    start();
    const std::string content = pseudoRandomBytes(44, 1'000'000);
    const auto file = open(content);
    SftpScript script;
    script.rules = {{nth(SftpPacket::Read, 4), SftpActions::refuse(SftpStatus::PermissionDenied)}};
    server().sftp().setScript(script);
    EXPECT_FALSE(read(*file, {{0, 65'536}, {100'000, 65'536}, {300'000, 65'536}}));
    expectRange(0, content.substr(0, 65'536), ReadStatus::Complete);
    expectRange(1, content.substr(100'000, 32'768), ReadStatus::Error);
    expectRange(2, content.substr(300'000, 65'536), ReadStatus::Complete);
    expectFailure(FailureCode::Denied);
    EXPECT_TRUE(files().isValid());
    EXPECT_TRUE(read(*file, {{0, 65'536}}));
}

TEST_F(RangesTest, ThatCannotBeWrittenAreAFailure)
{
    SftpScript script;
    script.diskSpace = 500'000;
    start(script);
    const auto file = files().fileOpen(path("file"), kWriteNew);
    ASSERT_NE(file, nullptr);
    const std::string bytes(5'000'000, 'b');
    EXPECT_FALSE(file->writeRanges({{0, bytes.data(), bytes.size()}}));
    EXPECT_LT(server().sftp().requestCount(SftpPacket::Write), 100U);
    EXPECT_TRUE(files().fileInfo(path("file")).has_value());
}

TEST_F(RangesTest, OfAFileThatIsAppendedToAreNotWritten)
{
    start();
    const auto file = files().fileOpen(put("file", "old"), OpenMode::Write | OpenMode::Append);
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(file->writeRanges({{0, "new", 3}}));
    expectFailure(FailureCode::Unsupported);
    EXPECT_EQ(server().sftp().requestCount(SftpPacket::Write), 0U);
}

TEST_F(RangesTest, EndWithTheConnection)
{
    start();
    expectEndBy([this] { server().ssh().killConnections(); });
}

TEST_F(RangesTest, EndWithAnInterrupt)
{
    start();
    expectEndBy([this] { client().session().interrupt(); });
}

TEST_F(RangesTest, EndWithTheServerProgram)
{
    start();
    const auto file = open(std::string(500'000, 's'));
    SftpScript script;
    script.rules = {{nth(SftpPacket::Read, 4), SftpActions::exit()}};
    server().sftp().setScript(script);
    EXPECT_FALSE(read(*file, {{0, 400'000}, {1, 9}}));
    expectFailure(FailureCode::ConnectionLost);
    EXPECT_EQ(ranges_[1].result.status, ReadStatus::Error);
    EXPECT_FALSE(files().isValid());
    EXPECT_FALSE(read(*file, {{0, 1}}));
    expectFailure(FailureCode::ConnectionLost);
}

TEST_F(RangesTest, OfManyFilesAreMovedByManyThreadsOnOneSession)
{
    start(answeringIn(SftpOrder::Shuffled, 3));
    constexpr int threads = 8;
    const std::string content = pseudoRandomBytes(45, 2'000'000);
    put("source", content);
    std::vector<std::future<bool>> working;
    for (int number = 0; number < threads; ++number) {
        working.push_back(std::async(std::launch::async, [&, number] {
            const auto source = files().fileOpen(path("source"), kRead);
            const auto target = files().fileOpen(path("t" + std::to_string(number)), kWriteNew);
            std::string bytes(content.size(), '\0');
            std::vector<StorageSystemReadRange> ranges{
                {1'000'000, bytes.data() + 1'000'000, 1'000'000, {}},
                {0, bytes.data(), 1'000'000, {}}};
            return source->readRanges(ranges) && bytes == content &&
                   target->writeRanges(
                       {{0, bytes.data(), 700'000}, {700'000, bytes.data() + 700'000, 1'300'000}});
        }));
    }
    for (auto& work : working) {
        if (work.wait_for(kGenerousLimit) != std::future_status::ready) {
            ADD_FAILURE() << "stands still";
            client().session().interrupt();
        }
        EXPECT_TRUE(work.get());
    }
    for (int number = 0; number < threads; ++number) {
        EXPECT_TRUE(readFile(path("t" + std::to_string(number))) == content) << number;
    }
}

} // namespace TarnisTest
