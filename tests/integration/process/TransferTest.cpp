// Reads and writes that tell the truth: real counts, time-outs, ends and errors.

#include "integration/process/ProcessTest.h"
#include "support/PseudoRandom.h"
#include "support/Sha256.h"

#include <array>
#include <atomic>
#include <future>
#include <vector>

namespace TarnisTest {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kShort{50};

/// One readSome into a buffer of 100 bytes.
struct Reading
{
    explicit Reading(const Tarnis::SSHProcess& process, bool isStderr,
                     milliseconds timeout = kGenerousLimit)
    {
        std::array<char, 100> buffer{};
        const auto part = process.readSome(buffer.data(), buffer.size(), isStderr, timeout);
        status = part.status;
        text.assign(buffer.data(), part.count);
    }

    Status status;
    std::string text;
};

TEST(ReadSome, TellsHowManyBytesReallyArrived)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.writeOutput("0123456789");
        channel.writeErrorOutput("err");
        channel.waitForClose();
    });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_EQ(readExactly(*process, 10, standardOutput), "0123456789");
    const Reading errors(*process, errorOutput);
    EXPECT_EQ(errors.status, Status::Transferred);
    EXPECT_EQ(errors.text, "err");
    EXPECT_EQ(Reading(*process, standardOutput, kShort).status, Status::TimedOut);
}

TEST(ReadSome, LeavesTheRestForTheNextCall)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.writeOutput("0123456789");
        channel.waitForClose();
    });
    const auto process = startProcess(scripted.session(), "x");
    ASSERT_TRUE(waitUntil([&] { return process->bytesAvailable(standardOutput) == 10; }));
    std::string buffer(6, 'x');
    const auto part = process->readSome(buffer.data(), 4, standardOutput, kGenerousLimit);
    EXPECT_EQ(part.count, 4U);
    EXPECT_EQ(buffer, "0123xx");
    EXPECT_EQ(Reading(*process, standardOutput).text, "456789");
}

TEST(ReadSome, TimesOutWhenNothingArrivesAndDoesNotWaitForZeroOrLess)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_EQ(Reading(*process, standardOutput, kShort).status, Status::TimedOut);
    for (const milliseconds timeout : {milliseconds(0), milliseconds(-9000), milliseconds::min()}) {
        EXPECT_TRUE(returnsWithinASecond([&] {
            EXPECT_EQ(Reading(*process, standardOutput, timeout).status, Status::TimedOut);
            EXPECT_EQ(Reading(*process, errorOutput, timeout).status, Status::TimedOut);
        })) << timeout.count();
    }
}

TEST(ReadSome, ReturnsWithTheFirstByteWithoutWaitingForMore)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.readInput(1);
        channel.writeOutput("a");
        channel.waitForClose();
    });
    const auto process = startProcess(scripted.session(), "x");
    auto reading =
        std::async(std::launch::async, [&] { return Reading(*process, standardOutput); });
    EXPECT_EQ(process->write("x", 1), 1U);
    EXPECT_EQ(reading.get().text, "a");
}

TEST(ReadSome, OfNothingTimesOutUntilTheStreamHasEnded)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.readInputToEnd();
        channel.finish(0);
    });
    const auto process = startProcess(scripted.session(), "x");
    char byte = 'x';
    EXPECT_EQ(process->readSome(&byte, 0, standardOutput, kShort).status, Status::TimedOut);
    EXPECT_TRUE(process->sendEOF());
    EXPECT_EQ(readToEnd(*process, standardOutput), "");
    EXPECT_EQ(process->readSome(&byte, 0, standardOutput, kShort).status, Status::EndOfStream);
    EXPECT_EQ(byte, 'x');
}

/// What the server does after its last byte.
class EndOfStreamTest : public ::testing::TestWithParam<bool>
{
protected:
    static void end(ScriptedChannel& channel)
    {
        if (GetParam()) {
            channel.finish(0);
        } else {
            channel.sendEof();
            channel.waitForClose();
        }
    }
};

TEST_P(EndOfStreamTest, IsToldForTheOutputWhileErrorOutputIsUnread)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.writeOutput("out");
        channel.writeErrorOutput("err");
        end(channel);
    });
    const auto process = startProcess(scripted.session(), "x");
    Status ended = Status::Error;
    EXPECT_EQ(readToEnd(*process, standardOutput, &ended), "out");
    EXPECT_EQ(ended, Status::EndOfStream);
    EXPECT_EQ(readToEnd(*process, errorOutput, &ended), "err");
    EXPECT_EQ(ended, Status::EndOfStream);
    EXPECT_EQ(Reading(*process, standardOutput, milliseconds(0)).status, Status::EndOfStream);
}

TEST_P(EndOfStreamTest, IsToldForTheErrorOutputWhileOutputIsUnread)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.writeErrorOutput("err");
        channel.writeOutput("out");
        end(channel);
    });
    const auto process = startProcess(scripted.session(), "x");
    Status ended = Status::Error;
    EXPECT_EQ(readToEnd(*process, errorOutput, &ended), "err");
    EXPECT_EQ(ended, Status::EndOfStream);
    EXPECT_EQ(readToEnd(*process, standardOutput, &ended), "out");
    EXPECT_EQ(ended, Status::EndOfStream);
    EXPECT_EQ(Reading(*process, errorOutput, milliseconds(0)).status, Status::EndOfStream);
}

INSTANTIATE_TEST_SUITE_P(ReadSome, EndOfStreamTest, ::testing::Values(false, true),
                         [](const auto& how) {
                             return how.param ? "WhenTheChannelIsClosed" : "WhenItStaysOpen";
                         });

TEST(ReadSome, IsAnErrorOnceTheConnectionIsLost)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.writeOutput("before");
        channel.readInput(1);
        channel.dropConnection();
    });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_EQ(readExactly(*process, 6, standardOutput), "before");
    EXPECT_EQ(process->write("x", 1), 1U);
    EXPECT_EQ(Reading(*process, standardOutput).status, Status::Error);
    EXPECT_EQ(Reading(*process, errorOutput).status, Status::Error);
    EXPECT_EQ(Reading(*process, errorOutput, milliseconds(0)).status, Status::Error);
    EXPECT_EQ(process->writeSome("x", 1, kShort).status, Status::Error);
    EXPECT_NE(scripted.session().getLastError(), "");
}

TEST(ReadSome, IsAnErrorOnceTheChannelWasClosedHere)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_TRUE(process->close());
    const Reading after(*process, standardOutput, kShort);
    EXPECT_TRUE(after.status == Status::Error || after.status == Status::EndOfStream)
        << after.status;
    EXPECT_EQ(after.text, "");
}

TEST(WriteSome, TimesOutWhenTheWindowIsFullAndDeliversExactlyWhatItTook)
{
    std::atomic<bool> reads{false};
    std::string received;
    ScriptedSession scripted([&](ScriptedChannel& channel) {
        channel.pauseInput();
        channel.waitUntil([&] { return reads.load(); });
        channel.resumeInput();
        channel.discardInputToEnd();
        received = channel.receivedSha256();
        channel.finish(0);
    });
    const auto process = startProcess(scripted.session(), "x");
    const std::string data = pseudoRandomBytes(1, 16 * kMebibyte);
    std::size_t taken = 0;
    auto part = process->writeSome(data.data(), data.size(), milliseconds(200));
    while (part.status == Status::Transferred) {
        taken += part.count;
        ASSERT_LT(taken, data.size()) << "the server does not read, yet everything was taken";
        part = process->writeSome(data.data() + taken, data.size() - taken, milliseconds(200));
    }
    EXPECT_EQ(part.status, Status::TimedOut);
    EXPECT_EQ(part.count, 0U);
    EXPECT_GT(taken, 0U);

    reads = true;
    const std::string tail = "the end";
    EXPECT_TRUE(writeAll(*process, tail));
    EXPECT_TRUE(process->sendEOF());
    ASSERT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(received, sha256(data.substr(0, taken) + tail));
}

TEST(WriteSome, OfNothingTimesOut)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_EQ(process->writeSome("x", 0, milliseconds(0)).status, Status::TimedOut);
    EXPECT_EQ(scripted.events().count(Event::Data), 0U);
}

TEST(WriteSome, IsAtItsEndAfterAnEndOfFileWasSent)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.waitForClose(); });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_TRUE(process->sendEOF());
    EXPECT_EQ(process->writeSome("x", 1, kShort).status, Status::EndOfStream);
}

TEST(WriteSome, IsAtItsEndAfterTheServerClosedTheChannel)
{
    ScriptedSession scripted([](ScriptedChannel& channel) { channel.finish(0); });
    const auto process = startProcess(scripted.session(), "x");
    ASSERT_TRUE(waitUntil([&] { return !process->isOpen() || process->isFinished(); }));
    EXPECT_TRUE(waitUntil(
        [&] { return process->writeSome("x", 1, kShort).status == Status::EndOfStream; }));
    EXPECT_TRUE(scripted.session().isAuthenticated());
}

TEST(WriteSome, IsAtItsEndAfterTheServerClosedTheChannelAndLeftOutputUnread)
{
    ScriptedSession scripted([](ScriptedChannel& channel) {
        channel.writeOutput("unread");
        channel.finish(0);
    });
    const auto process = startProcess(scripted.session(), "x");
    EXPECT_TRUE(waitUntil(
        [&] { return process->writeSome("x", 1, kShort).status == Status::EndOfStream; }));
    EXPECT_EQ(readToEnd(*process, standardOutput), "unread");
}

class TransferTest : public OpenSshSessionTest
{};

TEST_F(TransferTest, CarriesMoreThanTheWindowThroughACommandAndBack)
{
    const std::string data = pseudoRandomBytes(2, 12 * kMebibyte);
    const auto process = startProcess(session(), "cat");
    std::string back;
    std::vector<char> buffer(kMebibyte);
    std::size_t sent = 0;
    while (back.size() < data.size()) {
        if (sent < data.size()) {
            sent +=
                process->writeSome(data.data() + sent, data.size() - sent, milliseconds(0)).count;
        }
        const auto part =
            process->readSome(buffer.data(), buffer.size(), standardOutput, milliseconds(1));
        ASSERT_NE(part.status, Status::Error) << session().getLastError();
        back.append(buffer.data(), part.count);
    }
    EXPECT_TRUE(process->sendEOF());
    EXPECT_EQ(readToEnd(*process, standardOutput), "");
    EXPECT_EQ(sha256(back), sha256(data));
}

TEST_F(TransferTest, DoesNotWaitToTransferNothing)
{
    const auto process = startProcess(session(), "cat");
    char byte = 'x';
    const auto forEver = std::chrono::milliseconds::max();
    // An empty vector has a null pointer.
    for (char* const nothing : {&byte, static_cast<char*>(nullptr)}) {
        EXPECT_EQ(process->readSome(nothing, 0, standardOutput, forEver).status, Status::TimedOut);
        EXPECT_EQ(process->writeSome(nothing, 0, forEver).status, Status::TimedOut);
    }
    EXPECT_EQ(byte, 'x');
}

TEST_F(TransferTest, LetsOtherThreadsUseTheSessionWhileOneWaitsForOutput)
{
    const auto process = startProcess(session(), "cat");
    std::atomic<bool> waits{false};
    auto reading = std::async(std::launch::async, [&] {
        waits = true;
        return Reading(*process, standardOutput).text;
    });
    ASSERT_TRUE(waitUntil([&] { return waits.load(); }));
    for (int round = 0; round < 5; ++round) {
        expectOutput(session().execute("echo meanwhile"), "meanwhile\n");
    }
    EXPECT_EQ(process->getProcessState(), State::Running);
    EXPECT_TRUE(writeAll(*process, "at last"));
    EXPECT_EQ(reading.get(), "at last");
}

TEST_F(TransferTest, LetsOtherThreadsUseTheSessionWhileOneWaitsForRoom)
{
    const auto process = startProcess(session(), "read line; cat | wc -c");
    const std::string data(8 * kMebibyte, 'x');
    auto writing = std::async(std::launch::async, [&] { return writeAll(*process, data); });
    for (int round = 0; round < 5; ++round) {
        expectOutput(session().execute("echo meanwhile"), "meanwhile\n");
    }
    EXPECT_EQ(writing.wait_for(milliseconds(0)), std::future_status::timeout);
    session().interrupt();
    EXPECT_FALSE(writing.get());
}

} // namespace

} // namespace TarnisTest
