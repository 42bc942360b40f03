#include "sftp/SFTPReadAhead.h"

#include "sftp/ReplyFixture.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/HandleFatalError.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <thread>

using FileSystem::handle_fatal_error;
using Tarnis::SFTPReadAhead;
using TarnisTest::dataPacket;
using TarnisTest::number;
using TarnisTest::ReplyFixture;
using TarnisTest::statusPacket;
using TarnisTest::text;
using testing::Ge;
using testing::NotNull;

using Status = FileSystem::StorageSystemReadResult::Status;

namespace {

constexpr std::uint32_t largest = 229'376;

/// A server with one file, which answers reads as it likes.
class SftpReadAhead : public ReplyFixture
{
protected:
    struct Asked
    {
        std::uint64_t offset;
        std::uint32_t length;
    };

    SftpReadAhead()
        : reader(openFile(), "/file")
    {
        ON_CALL(libssh, sftp_async_read_begin)
            .WillByDefault([this](sftp_file at, std::uint32_t length) {
                if (refusesRequests) {
                    return -1;
                }
                asked.push_back({at->offset, length});
                underWay[++lastId] = asked.back();
                mostUnderWay = std::max(mostUnderWay, underWay.size());
                at->offset += length;
                return lastId;
            });
        ON_CALL(libssh, sftp_async_read)
            .WillByDefault([this](sftp_file at, void*, std::uint32_t, std::uint32_t id) {
                answerOldest();
                return at->nonblocking != 0 ? SSH_AGAIN : collect(id);
            });
        ON_CALL(libssh, ssh_channel_poll_timeout).WillByDefault([this](auto...) {
            return underWay.empty() ? SSH_ERROR : 1;
        });
        reader.start(0);
    }

    void answerOldest()
    {
        ASSERT_FALSE(underWay.empty());
        const auto oldest = underWay.begin();
        const auto id = static_cast<std::uint32_t>(oldest->first);
        const Asked request = oldest->second;
        underWay.erase(oldest);
        ++answers;
        std::this_thread::sleep_for(delay);
        if (answers == failsAt) {
            arrived(id, statusPacket, number(SSH_FX_FAILURE) + text("worn out"));
        } else if (request.offset >= content.size()) {
            arrived(id, statusPacket, number(SSH_FX_EOF));
        } else {
            const std::uint64_t left = content.size() - request.offset;
            const std::uint64_t count =
                std::min({left, std::uint64_t{request.length}, cap(request)});
            arrived(id, dataPacket,
                    text(content.substr(request.offset, count) + (lengthens ? "more" : "")));
        }
    }

    /// Reads to the end in steps.
    std::string readAll(std::uint64_t step)
    {
        std::string all;
        std::string part(step, '\0');
        auto status = Status::Complete;
        while (status == Status::Complete) {
            const auto got = reader.read(part.data(), step);
            all.append(part, 0, got.count);
            status = got.status;
        }
        EXPECT_EQ(status, Status::EndOfFile);
        return all;
    }

    static std::string bytes(std::size_t size)
    {
        std::string result(size, '\0');
        for (std::size_t index = 0; index < size; ++index) {
            result[index] = static_cast<char>(index * 7 + index / 251);
        }
        return result;
    }

    std::string content;
    std::function<std::uint64_t(const Asked&)> cap = [](const Asked&) { return ~0ULL; };
    bool refusesRequests = false;
    bool lengthens = false;
    int failsAt = 0;
    std::chrono::milliseconds delay{0}; ///< Of every answer, as from afar.
    int lastId = 0;
    int answers = 0;
    std::vector<Asked> asked;
    std::map<int, Asked> underWay;
    std::size_t mostUnderWay = 0;
    SFTPReadAhead reader;
};

} // namespace

TEST_F(SftpReadAhead, BringsEveryByteInStepsOfAnySize)
{
    content = bytes(3'000'001);
    for (const std::uint64_t step : {1'000'000U, 229'376U, 229'377U, 100'000U, 9'999'999U}) {
        reader.start(0);
        EXPECT_EQ(readAll(step), content) << step;
        EXPECT_TRUE(underWay.empty());
    }
}

TEST_F(SftpReadAhead, StartsWhereItIsTold)
{
    content = bytes(500'000);
    reader.start(123'456);
    EXPECT_EQ(readAll(100'000), content.substr(123'456));
}

TEST_F(SftpReadAhead, KeepsSeveralRequestsUnderWayButNotMoreThanSomeMegabytes)
{
    content = bytes(30'000'000);
    delay = std::chrono::milliseconds(2);
    EXPECT_EQ(readAll(4'000'000).size(), content.size());
    EXPECT_EQ(mostUnderWay, 16U);
    for (const auto& request : asked) {
        EXPECT_LE(request.length, largest);
    }
}

TEST_F(SftpReadAhead, LetsTheServerSendAsMuchAsIsUnderWay)
{
    constexpr std::uint64_t underWayAtMost = 16ULL * largest;
    content = bytes(30'000'000);
    delay = std::chrono::milliseconds(2);
    int widened = 0;
    EXPECT_CALL(libssh, ssh_channel_read_timeout(handle->getResource()->channel, NotNull(),
                                                 Ge(underWayAtMost), 1, 0))
        .WillRepeatedly([&widened] {
            ++widened;
            return 0;
        });
    EXPECT_EQ(readAll(4'000'000).size(), content.size());
    // As it shrinks with what arrives, but not with every answer.
    EXPECT_GE(widened, 20);
    EXPECT_LE(widened, 30);
}

TEST_F(SftpReadAhead, LeavesTheReceiveWindowAloneForASmallFileAndBesideAWriter)
{
    EXPECT_CALL(libssh, ssh_channel_read_timeout).Times(0);
    content = bytes(300'000);
    reader.expectEnd(content.size());
    reader.start(0);
    EXPECT_EQ(readAll(4'000'000).size(), content.size());
    content = bytes(10'000'000);
    handle->addBulkWriter();
    reader.expectEnd(content.size());
    reader.start(0);
    EXPECT_EQ(readAll(4'000'000).size(), content.size());
}

TEST_F(SftpReadAhead, AsksForNoMoreThanTheFileAndItsEndWhereTheSizeIsKnown)
{
    content = bytes(4'096);
    reader.expectEnd(content.size());
    reader.start(0);
    EXPECT_EQ(readAll(1'000'000), content);
    ASSERT_EQ(asked.size(), 2U);
    EXPECT_EQ(asked[0].length, 4'096U);
    EXPECT_EQ(asked[1].offset, 4'096U);
    // In one round trip.
    EXPECT_EQ(mostUnderWay, 2U);
}

TEST_F(SftpReadAhead, ReadsAFileToItsEndWhereverThatWasExpected)
{
    content = bytes(3'000'001);
    for (const std::uint64_t expected :
         {0U, 1U, 229'376U, 1'000'000U, 2'999'999U, 3'000'002U, 9'000'000U}) {
        reader.expectEnd(expected);
        reader.start(0);
        EXPECT_EQ(readAll(1'000'000), content) << expected;
        EXPECT_TRUE(underWay.empty());
    }
}

TEST_F(SftpReadAhead, StartsBehindTheExpectedEndToo)
{
    content = bytes(500'000);
    reader.expectEnd(1'000);
    reader.start(123'456);
    EXPECT_EQ(readAll(100'000), content.substr(123'456));
}

TEST_F(SftpReadAhead, KeepsFewerUnderWayBesideAWriter)
{
    content = bytes(10'000'000);
    handle->addBulkWriter();
    EXPECT_EQ(readAll(1'000'000).size(), content.size());
    EXPECT_EQ(mostUnderWay, 2U);
}

TEST_F(SftpReadAhead, AsksAgainForWhatAShortAnswerLeftOut)
{
    delay = std::chrono::milliseconds(2);
    content = bytes(2'000'000);
    std::uint64_t number = 0;
    cap = [&number](const Asked&) { return ++number % 3 == 0 ? 1'000ULL + number : ~0ULL; };
    EXPECT_EQ(readAll(700'000), content);
    EXPECT_TRUE(std::any_of(asked.begin(), asked.end(), [](const Asked& request) {
        return request.length == largest - 1'003;
    }));
    // Single short answers are no reason to ask for less.
    const auto farthest =
        std::max_element(asked.begin(), asked.end(), [](const Asked& one, const Asked& other) {
            return one.offset < other.offset;
        });
    EXPECT_EQ(farthest->length, largest);
}

TEST_F(SftpReadAhead, AsksForLessWhereTheServerNeverGivesMore)
{
    content = bytes(3'000'000);
    cap = [](const Asked&) { return 32'768ULL; };
    EXPECT_EQ(readAll(1'000'000), content);
    EXPECT_GT(std::count_if(asked.begin(), asked.end(),
                            [](const Asked& request) { return request.length == 32'768; }),
              60);
    EXPECT_GT(mostUnderWay, 16U);
}

TEST_F(SftpReadAhead, EndsWhereTheFileEndsThoughLaterRequestsWereAnswered)
{
    content = bytes(1'000'000);
    std::string target(2'000'000, '\0');
    ASSERT_EQ(reader.read(target.data(), 300'000).status, Status::Complete);
    content.resize(400'000);
    const auto got = reader.read(target.data(), 1'000'000);
    EXPECT_EQ(got.status, Status::EndOfFile);
    // Two answers had come while the file was longer.
    EXPECT_EQ(got.count, 2 * largest - 300'000);
    EXPECT_TRUE(underWay.empty());
    EXPECT_EQ(reader.read(target.data(), 10).status, Status::EndOfFile);
}

TEST_F(SftpReadAhead, OfAnEmptyFileEndsAtOnce)
{
    char byte = 0;
    const auto got = reader.read(&byte, 1);
    EXPECT_EQ(got.count, 0U);
    EXPECT_EQ(got.status, Status::EndOfFile);
}

TEST_F(SftpReadAhead, OfNoBytesAsksForNothing)
{
    EXPECT_EQ(reader.read(nullptr, 0).status, Status::Complete);
    EXPECT_TRUE(asked.empty());
}

TEST_F(SftpReadAhead, TellsAnErrorAfterTheBytesBeforeItAndCollectsTheRest)
{
    content = bytes(5'000'000);
    failsAt = 4;
    std::string target(5'000'000, '\0');
    const auto got = reader.read(target.data(), target.size());
    EXPECT_EQ(got.status, Status::Error);
    EXPECT_EQ(got.count, 3 * largest);
    EXPECT_TRUE(underWay.empty());
}

TEST_F(SftpReadAhead, TakesAnAnswerWithoutDataForAnError)
{
    content = bytes(1'000'000);
    cap = [](const Asked& request) { return request.offset == 0 ? ~0ULL : 0ULL; };
    std::string target(1'000'000, '\0');
    const auto got = reader.read(target.data(), target.size());
    EXPECT_EQ(got.status, Status::Error);
    EXPECT_EQ(got.count, largest);
}

TEST_F(SftpReadAhead, TellsAnErrorWhenNothingCanBeAskedFor)
{
    refusesRequests = true;
    char byte = 0;
    EXPECT_EQ(reader.read(&byte, 1).status, Status::Error);
}

TEST_F(SftpReadAhead, CollectsWhatIsUnderWayWhenItIsFinished)
{
    content = bytes(9'000'000);
    std::string target(300'000, '\0');
    EXPECT_EQ(reader.read(target.data(), target.size()).status, Status::Complete);
    EXPECT_FALSE(underWay.empty());
    reader.finish();
    EXPECT_TRUE(underWay.empty());
}

TEST_F(SftpReadAhead, ThrowsWhenTheSessionHasEnded)
{
    content = bytes(9'000'000);
    std::string target(300'000, '\0');
    reader.read(target.data(), target.size());
    session.retireChildren();
    EXPECT_THROW(reader.read(target.data(), target.size()), handle_fatal_error);
    EXPECT_THROW(reader.finish(), handle_fatal_error);
}

TEST_F(SftpReadAhead, SharesWhatMayBeToComeWithOtherFilesOfTheSession)
{
    content = bytes(10'000'000);
    handle->addBulkWriter();
    handle->sharedFlow()->addRead(10'000, largest);
    EXPECT_EQ(readAll(1'000'000).size(), content.size());
    EXPECT_EQ(mostUnderWay, 1U);
    // Taken by whoever it belongs to, or arrived: there is room again.
    handle->sharedFlow()->removeRead(10'000);
    reader.start(0);
    EXPECT_EQ(readAll(1'000'000).size(), content.size());
    EXPECT_EQ(mostUnderWay, 2U);
}

TEST_F(SftpReadAhead, TakesInWhatOthersAskedForWhenItIsNotItsTurn)
{
    content = bytes(1'000'000);
    handle->addBulkWriter();
    for (const std::uint32_t id : {10'000U, 10'001U}) {
        handle->sharedFlow()->addRead(id, largest);
        underWay[static_cast<int>(id)] = {0, largest};
    }
    ON_CALL(libssh, ssh_channel_poll).WillByDefault([this](auto...) {
        return underWay.empty() ? 0 : 1;
    });
    EXPECT_EQ(readAll(1'000'000), content);
    EXPECT_TRUE(isQueued(10'000));
}

TEST_F(SftpReadAhead, WhoHasNothingUnderWayGoesFirst)
{
    content = bytes(1'000'000);
    const Tarnis::SFTPFlow::Waiting waiting(*handle->sharedFlow());
    EXPECT_EQ(readAll(1'000'000), content);
    EXPECT_EQ(mostUnderWay, 1U);
}

TEST_F(SftpReadAhead, LeavesNothingSmallerThanAServerAnswersAtLeastToBeAskedForAgain)
{
    content = bytes(3'000'000);
    cap = [](const Asked&) { return 32'768ULL; };
    EXPECT_EQ(readAll(1'000'000), content);
    for (const Asked& request : asked) {
        // At the end of the file nothing more can come.
        const bool isAtEnd = request.offset + request.length > content.size();
        EXPECT_TRUE(isAtEnd || request.length % 32'768 == 0) << request.length;
    }
}

TEST_F(SftpReadAhead, TellsOfAReplyThatIsLongerThanWhatWasAskedFor)
{
    content = bytes(1'000'000);
    lengthens = true;
    char byte = 0;
    FileSystem::FailureScope scope("copy");
    EXPECT_EQ(reader.read(&byte, 1).status, Status::Error);
    EXPECT_FALSE(scope.result(false));
    const auto failure = FileSystem::Failure::last();
    EXPECT_EQ(failure.code(), FileSystem::FailureCode::Protocol);
    EXPECT_EQ(failure.text(), "the server sent more than was asked for");
    EXPECT_EQ(failure.entry(), "/file");
}

TEST_F(SftpReadAhead, TellsTheServersReason)
{
    content = bytes(1'000'000);
    failsAt = 1;
    char byte = 0;
    FileSystem::FailureScope scope("copy");
    EXPECT_EQ(reader.read(&byte, 1).status, Status::Error);
    EXPECT_FALSE(scope.result(false));
    const auto failure = FileSystem::Failure::last();
    EXPECT_EQ(failure.number(), SSH_FX_FAILURE);
    EXPECT_EQ(failure.text(), "worn out");
}
