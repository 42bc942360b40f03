// Ranges of an open file, with a server that answers as it likes.

#include "handles/SFTPFlow.h"
#include "sftp/ReplyFixture.h"

#include <FileSystem/Failure.h>
#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHFileSystemSFTPFile.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <future>
#include <string>
#include <vector>

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::handle_fatal_error;
using FileSystem::StorageSystemFileOpenModeFlag;
using FileSystem::StorageSystemReadRange;
using FileSystem::StorageSystemWriteRange;
using Tarnis::SFTPFlow;
using TarnisTest::dataPacket;
using TarnisTest::number;
using TarnisTest::ReplyFixture;
using TarnisTest::statusPacket;
using TarnisTest::text;
using ::testing::Return;

using Status = FileSystem::StorageSystemReadResult::Status;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

constexpr std::uint32_t largest = 32'768;
constexpr char readPacket = 5;

std::string bytes(std::size_t size)
{
    std::string result(size, '\0');
    for (std::size_t index = 0; index < size; ++index) {
        result[index] = static_cast<char>(index * 7 + index / 251);
    }
    return result;
}

/// A server with one file.
class SftpRanges : public ReplyFixture
{
protected:
    struct Asked
    {
        std::uint32_t id;
        bool isRead;
        std::uint64_t offset;
        std::uint32_t length;
        std::string data;
    };

    SftpRanges()
        : fileHandle(openFile())
        , opened(std::shared_ptr<Tarnis::SSHHandleSFTPSessionFile>(fileHandle), "/file",
                 StorageSystemFileOpenModeFlag::Read | StorageSystemFileOpenModeFlag::Write, files)
    {
        EXPECT_CALL(libssh, sftp_close).Times(::testing::AnyNumber());
        ON_CALL(libssh, ssh_string_len).WillByDefault(Return(handleText.size()));
        ON_CALL(libssh, ssh_string_data).WillByDefault(Return(handleText.data()));
        ON_CALL(libssh, sftp_async_read_begin).WillByDefault([](sftp_file at, std::uint32_t) {
            ++at->sftp->id_counter;
            return at->sftp->channel == nullptr ? -1 : 1;
        });
        ON_CALL(libssh, ssh_channel_write)
            .WillByDefault([this](ssh_channel, const void* packet, std::uint32_t size) {
                return take(static_cast<const char*>(packet), size);
            });
        ON_CALL(libssh, sftp_async_read).WillByDefault([this](auto...) {
            answerOne();
            return SSH_AGAIN;
        });
        ON_CALL(libssh, ssh_channel_poll_timeout).WillByDefault([this](auto...) {
            return inFlight.empty() ? SSH_ERROR : 1;
        });
        file.offset = 77;
    }

    int take(const char* packet, std::uint32_t size)
    {
        const auto numberAt = [packet](std::size_t at) {
            std::uint64_t value = 0;
            for (std::size_t index = 0; index < 4; ++index) {
                value = value << 8U | static_cast<unsigned char>(packet[at + index]);
            }
            return value;
        };
        const std::size_t fields = 4 + 1 + 4 + 4 + handleText.size();
        Asked request{static_cast<std::uint32_t>(numberAt(5)),
                      packet[4] == readPacket,
                      numberAt(fields) << 32U | numberAt(fields + 4),
                      static_cast<std::uint32_t>(numberAt(fields + 8)),
                      {}};
        if (!request.isRead) {
            request.data.assign(packet + fields + 12, request.length);
        }
        asked.push_back(request);
        inFlight.push_back(request);
        mostInFlight = std::max(mostInFlight, inFlight.size());
        return static_cast<int>(size);
    }

    void answerOne()
    {
        ASSERT_FALSE(inFlight.empty());
        const auto next = answersLastFirst ? std::prev(inFlight.end()) : inFlight.begin();
        const Asked request = *next;
        inFlight.erase(next);
        ++answers;
        onAnswer();
        if (answers == failsAt) {
            arrived(request.id, statusPacket, number(SSH_FX_FAILURE) + text("worn out"));
        } else if (!request.isRead) {
            store(request.offset, request.data);
            arrived(request.id, statusPacket, number(SSH_FX_OK) + text("fine"));
        } else if (request.offset >= content.size()) {
            arrived(request.id, statusPacket, number(SSH_FX_EOF));
        } else {
            const std::uint64_t left = content.size() - request.offset;
            const std::uint64_t count =
                std::min({left, std::uint64_t{request.length}, cap(request)});
            arrived(request.id, dataPacket,
                    text(content.substr(request.offset, count) + (lengthens ? "more" : "")));
        }
    }

    void store(std::uint64_t offset, const std::string& data)
    {
        content.resize(std::max<std::size_t>(content.size(), offset + data.size()));
        content.replace(offset, data.size(), data);
    }

    bool read(std::vector<std::pair<std::uint64_t, std::size_t>> places)
    {
        texts.clear();
        ranges.clear();
        for (const auto& place : places) {
            texts.emplace_back(place.second, 'x');
            ranges.push_back({place.first, nullptr, place.second, {}});
        }
        for (std::size_t index = 0; index < ranges.size(); ++index) {
            ranges[index].buffer = texts[index].data();
        }
        return opened.readRanges(ranges);
    }

    void expectRange(std::size_t index, Status status, std::uint64_t count) const
    {
        EXPECT_EQ(ranges[index].result.status, status) << index;
        EXPECT_EQ(ranges[index].result.count, count) << index;
        const auto from = std::min<std::uint64_t>(ranges[index].offset, content.size());
        EXPECT_TRUE(texts[index].substr(0, count) == content.substr(from, count)) << index;
    }

    std::string handleText{"handle"};
    std::string content;
    std::function<std::uint64_t(const Asked&)> cap = [](const Asked&) { return ~0ULL; };
    std::function<void()> onAnswer = [] {};
    bool answersLastFirst = false;
    bool lengthens = false;
    int failsAt = 0;
    int answers = 0;
    std::vector<Asked> asked;
    std::deque<Asked> inFlight;
    std::size_t mostInFlight = 0;
    std::vector<std::string> texts;
    std::vector<StorageSystemReadRange> ranges;
    std::shared_ptr<Tarnis::SSHHandleSFTPSessionFile> fileHandle;
    Tarnis::SSHFileSystemSFTPFile opened;
};

} // namespace

TEST_F(SftpRanges, AreReadWithManyRequestsInFlight)
{
    content = bytes(3'000'001);
    EXPECT_TRUE(read({{0, 2'000'000}, {2'000'000, 1'000'001}}));
    expectRange(0, Status::Complete, 2'000'000);
    expectRange(1, Status::Complete, 1'000'001);
    EXPECT_EQ(mostInFlight, 30U);
    for (const auto& request : asked) {
        EXPECT_LE(request.length, largest);
    }
    EXPECT_EQ(sftp.queue, nullptr);
}

TEST_F(SftpRanges, AreInFlightTogetherHoweverSmall)
{
    content = bytes(100'000);
    std::vector<std::pair<std::uint64_t, std::size_t>> places;
    for (std::uint64_t place = 0; place < 200; ++place) {
        places.emplace_back(place * 400, 10);
    }
    EXPECT_TRUE(read(places));
    for (std::size_t index = 0; index < ranges.size(); ++index) {
        expectRange(index, Status::Complete, 10);
    }
    EXPECT_EQ(mostInFlight, 64U);
}

TEST_F(SftpRanges, LeaveThePositionAndTheEndOfTheFileAlone)
{
    content = bytes(100);
    EXPECT_TRUE(read({{90, 20}}));
    const std::string data = "data";
    EXPECT_TRUE(opened.writeRanges({{0, data.data(), data.size()}}));
    EXPECT_EQ(file.offset, 77U);
    EXPECT_EQ(file.eof, 0);
    EXPECT_EQ(file.nonblocking, 0);
}

TEST_F(SftpRanges, AreRightInWhateverOrderTheyAreAnswered)
{
    answersLastFirst = true;
    content = bytes(2'000'000);
    EXPECT_TRUE(read({{5, 1'500'000}, {7, 300'000}}));
    expectRange(0, Status::Complete, 1'500'000);
    expectRange(1, Status::Complete, 300'000);
    const std::string data = bytes(1'234'567);
    EXPECT_TRUE(opened.writeRanges({{100, data.data(), data.size()}}));
    EXPECT_TRUE(content.substr(100, data.size()) == data);
    EXPECT_EQ(sftp.queue, nullptr);
}

TEST_F(SftpRanges, AreAskedForAgainWhereAnAnswerIsShort)
{
    content = bytes(2'000'000);
    std::uint64_t count = 0;
    cap = [&count](const Asked&) { return ++count % 3 == 0 ? 1'000 + count : ~0ULL; };
    EXPECT_TRUE(read({{0, 1'000'000}, {1'000'000, 999'999}}));
    expectRange(0, Status::Complete, 1'000'000);
    expectRange(1, Status::Complete, 999'999);
    cap = [](const Asked&) { return 20'000ULL; };
    EXPECT_TRUE(read({{0, 2'000'000}}));
    expectRange(0, Status::Complete, 2'000'000);
}

TEST_F(SftpRanges, EndWhereTheFileEnds)
{
    content = bytes(100'000);
    EXPECT_TRUE(read({{99'990, 20}, {100'000, 5}, {900'000, 5}, {0, 400'000}, {5, 5}}));
    expectRange(0, Status::EndOfFile, 10);
    expectRange(1, Status::EndOfFile, 0);
    expectRange(2, Status::EndOfFile, 0);
    expectRange(3, Status::EndOfFile, 100'000);
    expectRange(4, Status::Complete, 5);
}

TEST_F(SftpRanges, EndAtTheFirstEndThatWasToldWhateverCameFromBehindIt)
{
    content = bytes(10 * largest);
    answersLastFirst = true;
    // The file is cut while half of the answers have come.
    onAnswer = [this] { content.resize(answers == 6 ? 3 * largest + 5 : content.size()); };
    EXPECT_TRUE(read({{0, 10 * largest}}));
    EXPECT_EQ(answers, 11);
    expectRange(0, Status::EndOfFile, 3 * largest + 5);
}

TEST_F(SftpRanges, OfNoBytesAreAskedForNowhere)
{
    EXPECT_TRUE(read({}));
    EXPECT_TRUE(read({{5, 0}}));
    expectRange(0, Status::Complete, 0);
    EXPECT_TRUE(opened.writeRanges({}));
    EXPECT_TRUE(opened.writeRanges({{5, nullptr, 0}}));
    EXPECT_TRUE(asked.empty());
}

TEST_F(SftpRanges, OfWhichOneIsRefusedAreRightOtherwise)
{
    content = bytes(1'000'000);
    failsAt = 6;
    EXPECT_FALSE(read({{0, 100'000}, {300'000, 100'000}, {100'000, 50'000}}));
    expectRange(0, Status::Complete, 100'000);
    expectRange(1, Status::Error, largest);
    expectRange(2, Status::Complete, 50'000);
    const auto failure = Failure::last();
    EXPECT_EQ(failure.number(), SSH_FX_FAILURE);
    EXPECT_EQ(failure.text(), "worn out");
    EXPECT_EQ(failure.entry(), "/file");
    EXPECT_TRUE(inFlight.empty());
}

TEST_F(SftpRanges, ThatGetNoBytesAndNoEndAreErrors)
{
    content = bytes(1'000'000);
    cap = [](const Asked& request) { return request.offset == largest ? 0ULL : ~0ULL; };
    EXPECT_FALSE(read({{0, 100'000}, {500'000, 10}}));
    expectRange(0, Status::Error, largest);
    expectRange(1, Status::Complete, 10);
    EXPECT_EQ(Failure::last().code(), FailureCode::Protocol);
}

TEST_F(SftpRanges, ThatGetMoreThanWasAskedForAreErrors)
{
    content = bytes(1'000);
    lengthens = true;
    EXPECT_FALSE(read({{0, 100}}));
    expectRange(0, Status::Error, 0);
    EXPECT_EQ(Failure::last().text(), "the server sent more than was asked for");
}

TEST_F(SftpRanges, AreErrorsOnceNoAnswerComes)
{
    content = bytes(2'000'000);
    EXPECT_CALL(libssh, ssh_channel_poll_timeout)
        .WillOnce(Return(1))
        .WillOnce(Return(1))
        .WillRepeatedly(Return(SSH_ERROR));
    EXPECT_FALSE(read({{0, 1'000'000}, {1'000'000, 1'000'000}}));
    expectRange(0, Status::Error, 2 * largest);
    expectRange(1, Status::Error, 0);
    // What was asked for before that.
    EXPECT_LE(asked.size(), 32U);
}

TEST_F(SftpRanges, AreErrorsWhereNothingCanBeSent)
{
    content = bytes(1'000);
    EXPECT_CALL(libssh, ssh_channel_write).WillRepeatedly(Return(SSH_ERROR));
    EXPECT_FALSE(read({{0, 10}, {10, 10}}));
    expectRange(0, Status::Error, 0);
    expectRange(1, Status::Error, 0);
    EXPECT_FALSE(opened.writeRanges({{0, "data", 4}}));
}

TEST_F(SftpRanges, AreErrorsOnALostSession)
{
    fileHandle->lossMark() = true;
    EXPECT_FALSE(read({{0, 10}}));
    expectRange(0, Status::Error, 0);
    EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost);
    EXPECT_FALSE(opened.writeRanges({{0, "data", 4}}));
    EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost);
    EXPECT_TRUE(asked.empty());
}

TEST_F(SftpRanges, GiveUpOnceSomebodyElseHasLostTheSession)
{
    content = bytes(3'000'000);
    onAnswer = [this] { fileHandle->lossMark() = answers == 5; };
    EXPECT_FALSE(read({{0, 2'000'000}, {2'000'000, 100}}));
    // The fifth answer may have come in time.
    EXPECT_EQ(ranges[0].result.status, Status::Error);
    EXPECT_LE(ranges[0].result.count, 5 * largest);
    expectRange(1, Status::Error, 0);
    EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost);
    EXPECT_EQ(answers, 5);
}

TEST_F(SftpRanges, ThrowOnceTheSessionHasEnded)
{
    content = bytes(1'000'000);
    cap = [this](const Asked&) {
        session.retireChildren();
        return ~0ULL;
    };
    EXPECT_THROW(read({{0, 1'000'000}}), handle_fatal_error);
    EXPECT_EQ(ranges[0].result.status, Status::Error);
    EXPECT_THROW(static_cast<void>(opened.writeRanges({{0, "data", 4}})), handle_fatal_error);
}

TEST_F(SftpRanges, LeaveNoAnswerBehindWhenTheyThrow)
{
    content = bytes(1'000'000);
    int left = 5;
    EXPECT_CALL(libssh, ssh_string_len).WillRepeatedly([&](auto...) {
        return --left == 0 ? throw std::bad_alloc() : handleText.size();
    });
    EXPECT_THROW(read({{0, 1'000'000}}), std::bad_alloc);
    EXPECT_EQ(asked.size(), 4U);
    EXPECT_TRUE(inFlight.empty());
    EXPECT_EQ(sftp.queue, nullptr);
    EXPECT_TRUE(read({{0, 1'000'000}}));
    expectRange(0, Status::Complete, 1'000'000);
    EXPECT_EQ(mostInFlight, 30U);
}

TEST_F(SftpRanges, AreMovedOneAfterTheOtherByALibsshThatGivesNoNumbers)
{
    constexpr std::uint32_t plainRequest = 1'000;
    // It takes a number only once it has sent.
    std::uint64_t place = 0;
    ON_CALL(libssh, sftp_async_read_begin).WillByDefault([&](sftp_file at, std::uint32_t size) {
        if (at->sftp->channel == nullptr) {
            return -1;
        }
        place = at->offset;
        at->offset += size;
        return static_cast<int>(plainRequest);
    });
    ON_CALL(libssh, sftp_async_read)
        .WillByDefault([&](sftp_file at, void* data, std::uint32_t size, std::uint32_t) {
            const auto taken = content.copy(static_cast<char*>(data), size, place);
            at->offset -= size - taken;
            at->eof = taken == 0 ? 1 : 0;
            return static_cast<int>(taken);
        });
    EXPECT_CALL(libssh, ssh_channel_write).Times(0);
    EXPECT_CALL(libssh, sftp_write).WillOnce([this](sftp_file at, const void* data, auto size) {
        store(at->offset, {static_cast<const char*>(data), size});
        return static_cast<ssize_t>(size);
    });
    EXPECT_TRUE(opened.writeRanges({{3, "data", 4}}));
    EXPECT_EQ(content.substr(3), "data");
    content = bytes(100'000);
    EXPECT_TRUE(read({{50'000, 40'000}, {10, 20}, {99'990, 20}}));
    expectRange(0, Status::Complete, 40'000);
    expectRange(1, Status::Complete, 20);
    expectRange(2, Status::EndOfFile, 10);
    EXPECT_EQ(file.offset, 77U);
}

TEST_F(SftpRanges, AreWrittenWithManyRequestsInFlight)
{
    const std::string data = bytes(5'000'001);
    EXPECT_TRUE(opened.writeRanges(
        {{5, data.data(), 3'000'000}, {3'000'005, data.data() + 3'000'000, 2'000'001}}));
    EXPECT_TRUE(content.substr(5) == data);
    // The window less what is kept for small requests.
    EXPECT_GE(mostInFlight, 62U);
    EXPECT_LE(mostInFlight, 64U);
    EXPECT_TRUE(inFlight.empty());
    EXPECT_EQ(sftp.queue, nullptr);
}

TEST_F(SftpRanges, ThatOverlapAreWrittenInTheirOrder)
{
    answersLastFirst = true;
    const std::string first(100'000, 'a');
    const std::string second(50'000, 'b');
    const std::string third(100'000, 'c');
    EXPECT_TRUE(opened.writeRanges({{0, first.data(), first.size()},
                                    {40'000, second.data(), second.size()},
                                    {85'000, third.data(), third.size()}}));
    EXPECT_TRUE(content == std::string(40'000, 'a') + std::string(45'000, 'b') + third);
    EXPECT_GT(mostInFlight, 1U);
}

TEST_F(SftpRanges, AreNotWrittenAfterARefusal)
{
    failsAt = 3;
    const std::string data = bytes(20'000'000);
    EXPECT_FALSE(opened.writeRanges({{0, data.data(), data.size()}}));
    EXPECT_LT(content.size(), data.size());
    EXPECT_TRUE(inFlight.empty());
    EXPECT_EQ(sftp.queue, nullptr);
    EXPECT_EQ(Failure::last().text(), "worn out");
    failsAt = 0;
    EXPECT_TRUE(opened.writeRanges({{0, data.data(), data.size()}}));
    EXPECT_TRUE(content == data);
}

TEST_F(SftpRanges, OfWhichTheFirstFailureIsTold)
{
    content = bytes(1'000'000);
    ON_CALL(libssh, sftp_async_read).WillByDefault([this](auto...) {
        const Asked request = inFlight.front();
        inFlight.pop_front();
        arrived(request.id, statusPacket,
                number(SSH_FX_FAILURE) + text("at " + std::to_string(request.offset)));
        return SSH_AGAIN;
    });
    EXPECT_FALSE(read({{5, 100'000}}));
    EXPECT_EQ(Failure::last().text(), "at 5");
}

TEST_F(SftpRanges, LetTheServerSendAsMuchAsIsAskedFor)
{
    content = bytes(10'000'000);
    int widened = 0;
    EXPECT_CALL(libssh, ssh_channel_read_timeout(sftp.channel, ::testing::NotNull(),
                                                 ::testing::Ge(2U << 20U), 1, 0))
        .WillRepeatedly([&widened] {
            ++widened;
            return 0;
        });
    EXPECT_TRUE(read({{0, 300'000}}));
    EXPECT_EQ(widened, 0);
    EXPECT_TRUE(read({{0, 10'000'000}}));
    // As it shrinks with what arrives, but not with every answer.
    EXPECT_GE(widened, 8);
    EXPECT_LE(widened, 10);
}

TEST_F(SftpRanges, ShareWhatMayBeInFlightWithOtherFilesOfTheSession)
{
    content = bytes(3'000'000);
    {
        const SFTPFlow::Share other(*handle->sharedFlow(), SFTPFlow::Direction::Reads);
        EXPECT_TRUE(read({{0, 3'000'000}}));
        EXPECT_EQ(mostInFlight, 15U);
        const SFTPFlow::Share writer(*handle->sharedFlow(), SFTPFlow::Direction::Writes);
        EXPECT_TRUE(read({{0, 3'000'000}}));
        EXPECT_EQ(mostInFlight, 15U);
    }
    EXPECT_TRUE(read({{0, 3'000'000}}));
    EXPECT_EQ(mostInFlight, 30U);
}

TEST_F(SftpRanges, AreReadInSmallerPiecesBesideVeryManyOthers)
{
    content = bytes(100'000);
    std::deque<SFTPFlow::Share> others;
    for (int count = 0; count < 1'000; ++count) {
        others.emplace_back(*handle->sharedFlow(), SFTPFlow::Direction::Reads);
    }
    EXPECT_TRUE(read({{0, 100'000}}));
    expectRange(0, Status::Complete, 100'000);
    EXPECT_EQ(mostInFlight, 1U);
    EXPECT_EQ(asked.front().length, 4'096U);
}

TEST_F(SftpRanges, WaitForTheOthersWithoutTheLockAndTakeRepliesInMeanwhile)
{
    content = bytes(100);
    // Somebody else has all that may be in flight, and his reply has to be got rid of.
    std::optional<SFTPFlow::Share> other(std::in_place, *handle->sharedFlow(),
                                         SFTPFlow::Direction::Reads);
    other->add(30 * largest);
    const std::uint32_t others = ++sftp.id_counter;
    inFlight.push_back({others, true, 0, 10, {}});
    ON_CALL(libssh, ssh_channel_poll).WillByDefault([this](auto...) {
        return inFlight.empty() ? 0 : 1;
    });
    auto reading = std::async(std::launch::async, [this] { return read({{0, 50}}); });
    for (bool isTakenIn = false; !isTakenIn;) {
        const auto lock = fileHandle->getLock();
        isTakenIn = isQueued(others);
    }
    {
        const auto lock = fileHandle->getLock();
        EXPECT_TRUE(asked.empty());
        other.reset();
    }
    EXPECT_TRUE(reading.get());
    expectRange(0, Status::Complete, 50);
}

TEST_F(SftpRanges, WaitForRoomWithoutTheLockAndTakeRepliesInMeanwhile)
{
    std::atomic<std::uint32_t> room{0};
    std::atomic<int> looks{0};
    const std::string data = "some data";
    EXPECT_TRUE(opened.writeRanges({{0, data.data(), 4}}));
    ON_CALL(libssh, ssh_channel_window_size).WillByDefault([&](ssh_channel) -> std::uint32_t {
        ++looks;
        return room;
    });
    const std::uint32_t others = ++sftp.id_counter;
    inFlight.push_back({others, true, 0, 10, {}});
    ON_CALL(libssh, ssh_channel_poll).WillByDefault([this](auto...) {
        return inFlight.empty() ? 0 : 1;
    });
    auto writing = std::async(std::launch::async, [&] {
        return opened.writeRanges({{4, data.data() + 4, 5}});
    });
    constexpr std::chrono::milliseconds moment(1);
    while (looks < 10 && writing.wait_for(moment) != std::future_status::ready) {
    }
    {
        const auto lock = fileHandle->getLock();
        EXPECT_TRUE(isQueued(others));
        EXPECT_EQ(content, "some");
        room = 1U << 20U;
    }
    EXPECT_TRUE(writing.get());
    EXPECT_EQ(content, "some data");
}

TEST_F(SftpRanges, GoOnWhereASmallWindowOpensOnlyOnceHalfOfItIsUsed)
{
    constexpr std::uint32_t window = 8'192;
    constexpr int manyLooks = 10'000;
    std::uint32_t left = window;
    int looks = 0;
    ON_CALL(libssh, ssh_channel_window_size).WillByDefault([&](ssh_channel) {
        left = ++looks > manyLooks ? window : left;
        return left;
    });
    ON_CALL(libssh, ssh_channel_write)
        .WillByDefault([&](ssh_channel, const void* packet, std::uint32_t size) {
            left -= std::min(left, size);
            left = left < window / 2 ? window : left;
            return take(static_cast<const char*>(packet), size);
        });
    // Leaves one half of the window.
    const std::size_t overhead = 25 + handleText.size();
    const std::string data = bytes(100'000);
    EXPECT_TRUE(opened.writeRanges({{0, data.data(), window / 2 - overhead}}));
    EXPECT_EQ(left, window / 2);
    EXPECT_TRUE(opened.writeRanges({{0, data.data(), data.size()}}));
    EXPECT_TRUE(content == data);
    EXPECT_LE(looks, manyLooks);
}

TEST_F(SftpRanges, AreWrittenInSmallerPiecesWhereTheServersWindowIsSmall)
{
    constexpr std::uint32_t window = 24'576;
    ON_CALL(libssh, ssh_channel_window_size).WillByDefault(Return(window));
    const std::string data = bytes(500'000);
    EXPECT_TRUE(opened.writeRanges({{0, data.data(), data.size()}}));
    EXPECT_TRUE(content == data);
    for (const auto& request : asked) {
        EXPECT_LT(request.length, window);
    }
    EXPECT_GT(asked.front().length, window / 2);
}

TEST_F(SftpRanges, AreSentBitByBitByLibsshWhereTheWindowIsTiny)
{
    ON_CALL(libssh, ssh_channel_window_size).WillByDefault(Return(16));
    const std::string data = bytes(10'000);
    EXPECT_TRUE(opened.writeRanges({{0, data.data(), data.size()}}));
    EXPECT_TRUE(content == data);
}
