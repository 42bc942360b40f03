#include "sftp/wire/SFTPPacketSplitter.h"

#include "sftp/wire/PacketLog.h"
#include "sftp/wire/WireBytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <new>
#include <string>
#include <string_view>
#include <vector>

using Tarnis::SFTPPacket;
using Tarnis::SFTPPacketReceiver;
using Tarnis::SFTPPacketSplitter;
using Tarnis::SFTPPacketType;
using TarnisTest::LoggedPacket;
using TarnisTest::PacketLog;
using TarnisTest::wireBytes;

namespace {

const std::string version = wireBytes("0000000f 02 00000003 00000001'e' 00000001'1'");
const std::string status = wireBytes("00000009 65 01020304 00000002");
const std::string data = wireBytes("0000000c 67 01020305 00000003'abc'");
const std::string paddedData = wireBytes("0000000f 67 01020306 00000003'def' 'pad'");
const std::string noData = wireBytes("00000009 67 01020307 00000000");
const std::string shortest = wireBytes("00000005 66 01020308");

const std::string stream = version + status + data + paddedData + noData + shortest + data;

const std::vector<LoggedPacket> packetsOfStream{
    {SFTPPacketType::Version, 0, wireBytes("00000003 00000001'e' 00000001'1'")},
    {SFTPPacketType::Status, 0x01020304, wireBytes("00000002")},
    {SFTPPacketType::Data, 0x01020305, "abc", 3},
    {SFTPPacketType::Data, 0x01020306, "def", 3},
    {SFTPPacketType::Data, 0x01020307, "", 0},
    {SFTPPacketType::Handle, 0x01020308, ""},
    {SFTPPacketType::Data, 0x01020305, "abc", 3},
};

/// What came of some bytes.
struct Outcome
{
    std::vector<LoggedPacket> packets;
    std::string reason;
    bool isBroken;
    bool isInPacket;

    friend bool operator==(const Outcome& left, const Outcome& right)
    {
        return left.packets == right.packets && left.reason == right.reason &&
               left.isBroken == right.isBroken && left.isInPacket == right.isInPacket;
    }
};

Outcome outcomeOf(const std::vector<std::string_view>& pieces,
                  std::uint32_t limit = SFTPPacketSplitter::defaultLimit)
{
    PacketLog log;
    SFTPPacketSplitter splitter(log, limit);
    for (const std::string_view piece : pieces) {
        const bool isTaken = splitter.take(piece);
        EXPECT_EQ(isTaken, !splitter.isBroken());
    }
    EXPECT_TRUE(log.isOrderly());
    return {log.packets(), splitter.reason(), splitter.isBroken(), splitter.isInPacket()};
}

std::vector<std::string_view> byteByByte(std::string_view bytes)
{
    std::vector<std::string_view> pieces;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        pieces.push_back(bytes.substr(at, 1));
    }
    return pieces;
}

/// Expects the same of the bytes however they come in two or three pieces, and one by one.
void expectSameInPieces(std::string_view bytes)
{
    const Outcome whole = outcomeOf({bytes});
    EXPECT_TRUE(outcomeOf(byteByByte(bytes)) == whole);
    for (std::size_t first = 0; first <= bytes.size(); ++first) {
        for (std::size_t second = first; second <= bytes.size(); ++second) {
            ASSERT_TRUE(outcomeOf({bytes.substr(0, first), bytes.substr(first, second - first),
                                   bytes.substr(second)}) == whole)
                << first << ' ' << second;
        }
    }
}

/// Does something with each packet, and with the beginning of each data reply.
class ActingReceiver final : public SFTPPacketReceiver
{
public:
    explicit ActingReceiver(std::function<void(std::string_view)> act)
        : act_(std::move(act))
    {}

    void packet(const SFTPPacket& packet) override { act_(packet.fields); }

    void dataBegins(std::uint32_t /*id*/, std::uint32_t /*size*/) override { act_({}); }

    void dataContinues(std::string_view bytes) override
    {
        dataParts.push_back(bytes);
        if (actOnData) {
            act_(bytes);
        }
    }

    void dataEnds() override { ++ends; }

    bool actOnData = false;
    int ends = 0;
    std::vector<std::string_view> dataParts;

private:
    std::function<void(std::string_view)> act_;
};

void expectBroken(const std::string& bytes, const std::string& reason,
                  std::uint32_t limit = SFTPPacketSplitter::defaultLimit)
{
    const Outcome outcome = outcomeOf({status + bytes + status}, limit);
    EXPECT_TRUE(outcome.isBroken);
    EXPECT_EQ(outcome.reason, reason);
    EXPECT_EQ(outcome.packets.size(), 1U);
    EXPECT_FALSE(outcome.isInPacket);
}

} // namespace

TEST(SftpPacketSplitter, FindsThePacketsOfOnePiece)
{
    const Outcome outcome = outcomeOf({stream});
    EXPECT_TRUE(outcome.packets == packetsOfStream);
    EXPECT_FALSE(outcome.isBroken);
    EXPECT_EQ(outcome.reason, "");
    EXPECT_FALSE(outcome.isInPacket);
}

TEST(SftpPacketSplitter, FindsTheSameHoweverThePiecesAreCut)
{
    expectSameInPieces(stream);
}

TEST(SftpPacketSplitter, TellsWhetherAPacketWasCutOff)
{
    for (const std::string* const packet : {&version, &status, &data, &paddedData, &noData}) {
        for (std::size_t length = 1; length < packet->size(); ++length) {
            const Outcome outcome = outcomeOf({std::string_view(*packet).substr(0, length)});
            EXPECT_TRUE(outcome.isInPacket) << length;
            EXPECT_FALSE(outcome.isBroken);
        }
        EXPECT_FALSE(outcomeOf({*packet}).isInPacket);
    }
}

TEST(SftpPacketSplitter, HandsOverWhatLiesInOnePieceWhereItLies)
{
    const char* place = nullptr;
    ActingReceiver receiver([&](std::string_view fields) { place = fields.data(); });
    SFTPPacketSplitter splitter(receiver);
    ASSERT_TRUE(splitter.take(status));
    EXPECT_EQ(static_cast<const void*>(place), &status[9]);
    ASSERT_TRUE(splitter.take(data));
    ASSERT_EQ(receiver.dataParts.size(), 1U);
    EXPECT_EQ(static_cast<const void*>(receiver.dataParts[0].data()), &data[13]);
}

TEST(SftpPacketSplitter, HandsOverDataAsItArrives)
{
    ActingReceiver receiver([](std::string_view) {});
    SFTPPacketSplitter splitter(receiver);
    const std::string_view bytes = data;
    ASSERT_TRUE(splitter.take(bytes.substr(0, 14)));
    ASSERT_EQ(receiver.dataParts.size(), 1U);
    EXPECT_EQ(static_cast<const void*>(receiver.dataParts[0].data()), &data[13]);
    EXPECT_EQ(receiver.ends, 0);
    ASSERT_TRUE(splitter.take(bytes.substr(14)));
    ASSERT_EQ(receiver.dataParts.size(), 2U);
    EXPECT_EQ(static_cast<const void*>(receiver.dataParts[1].data()), &data[14]);
    EXPECT_EQ(receiver.ends, 1);
}

TEST(SftpPacketSplitter, HandsOverTypesThatNobodyKnows)
{
    const Outcome outcome = outcomeOf({wireBytes("00000006 ff 01020304'x'")});
    ASSERT_EQ(outcome.packets.size(), 1U);
    EXPECT_EQ(outcome.packets[0].type, static_cast<SFTPPacketType>(0xff));
    EXPECT_EQ(outcome.packets[0].id, 0x01020304U);
    EXPECT_EQ(outcome.packets[0].fields, "x");
}

TEST(SftpPacketSplitter, TakesPacketsUpToTheLimit)
{
    EXPECT_FALSE(outcomeOf({data}, 12).isBroken);
    expectBroken(data, "an SFTP packet of 12 bytes, more than the limit of 11", 11);
    const std::string name = wireBytes("0000000c 68 01020305 00000003'abc'");
    EXPECT_FALSE(outcomeOf({name}, 12).isBroken);
    expectBroken(name, "an SFTP packet of 12 bytes, more than the limit of 11", 11);
}

TEST(SftpPacketSplitter, TakesOneMebibyteUnlessToldOtherwise)
{
    const std::string fields(1'048'571, 'f');
    const std::string largest = wireBytes("00100000 68 01020304") + fields;
    for (const auto& pieces :
         {std::vector<std::string_view>{largest},
          std::vector<std::string_view>{std::string_view(largest).substr(0, 500'000),
                                        std::string_view(largest).substr(500'000)}}) {
        const Outcome outcome = outcomeOf(pieces);
        ASSERT_EQ(outcome.packets.size(), 1U);
        EXPECT_TRUE(outcome.packets[0].fields == fields);
    }
    expectBroken(wireBytes("00100001 68"),
                 "an SFTP packet of 1048577 bytes, more than the limit of 1048576");
    expectBroken(wireBytes("ffffffff 67"),
                 "an SFTP packet of 4294967295 bytes, more than the limit of 1048576");
}

TEST(SftpPacketSplitter, BreaksAtAPacketTooShortForItsTypeAndIdentifier)
{
    expectBroken(wireBytes("00000000"), "an SFTP packet of 0 bytes, too short to be one");
    expectBroken(wireBytes("00000001 65"), "an SFTP packet of 1 bytes, too short to be one");
    expectBroken(wireBytes("00000004 65 010203"), "an SFTP packet of 4 bytes, too short to be one");
    expectBroken(wireBytes("00000004 02 000003"), "an SFTP packet of 4 bytes, too short to be one");
    expectBroken(wireBytes("00000008 67 01020304 000000"),
                 "an SFTP data reply of 8 bytes, too short to be one");
}

TEST(SftpPacketSplitter, BreaksAtADataReplyWithLessInItThanItSays)
{
    expectBroken(wireBytes("0000000c 67 01020304 00000004'abc'"),
                 "an SFTP data reply of 12 bytes that says it has 4 bytes of data");
    expectBroken(wireBytes("0000000c 67 01020304 ffffffff'abc'"),
                 "an SFTP data reply of 12 bytes that says it has 4294967295 bytes of data");
}

TEST(SftpPacketSplitter, BreaksAtTheSamePlaceHoweverThePiecesAreCut)
{
    for (const char* const wrong :
         {"00000000", "00000004 65 010203", "00100001 65", "00000008 67 01020304 000000",
          "0000000c 67 01020304 00000004'abc'"}) {
        std::string bytes = data;
        bytes.append(wireBytes(wrong)).append(status);
        expectSameInPieces(bytes);
    }
}

TEST(SftpPacketSplitter, StaysOrderlyWhateverByteIsWrong)
{
    const std::string whole = version + paddedData + status;
    for (std::size_t place = 0; place < whole.size(); ++place) {
        for (unsigned change = 1; change < 256; ++change) {
            std::string corrupt = whole;
            corrupt[place] = static_cast<char>(static_cast<unsigned char>(corrupt[place]) ^ change);
            ASSERT_TRUE(outcomeOf(byteByByte(corrupt)) == outcomeOf({corrupt}))
                << place << ' ' << change;
        }
    }
}

TEST(SftpPacketSplitter, HandsOverNothingOnceBroken)
{
    PacketLog log;
    SFTPPacketSplitter splitter(log);
    EXPECT_FALSE(splitter.take(wireBytes("00000000")));
    EXPECT_FALSE(splitter.take(status));
    EXPECT_FALSE(splitter.take(data));
    EXPECT_FALSE(splitter.take({}));
    EXPECT_TRUE(log.packets().empty());
}

TEST(SftpPacketSplitter, CanBeBrokenOffByItsReceiver)
{
    int count = 0;
    SFTPPacketSplitter* broken = nullptr;
    ActingReceiver receiver([&](std::string_view) {
        ++count;
        broken->breakOff("nobody asked for this");
        broken->breakOff("a later reason");
    });
    for (const std::string* const first : {&status, &data, &noData}) {
        SFTPPacketSplitter splitter(receiver);
        broken = &splitter;
        EXPECT_FALSE(splitter.take(*first + status));
        EXPECT_EQ(splitter.reason(), "nobody asked for this");
    }
    EXPECT_EQ(count, 3);
    EXPECT_EQ(receiver.ends, 0);
    EXPECT_TRUE(receiver.dataParts.empty());
}

TEST(SftpPacketSplitter, DoesNotEndDataThatBrokeItOff)
{
    SFTPPacketSplitter* broken = nullptr;
    ActingReceiver receiver([&](std::string_view bytes) {
        if (!bytes.empty()) {
            broken->breakOff("enough");
        }
    });
    receiver.actOnData = true;
    SFTPPacketSplitter splitter(receiver);
    broken = &splitter;
    EXPECT_FALSE(splitter.take(data + data));
    EXPECT_EQ(receiver.dataParts.size(), 1U);
    EXPECT_EQ(receiver.ends, 0);
}

TEST(SftpPacketSplitter, IsBrokenByWhatItsReceiverThrows)
{
    ActingReceiver receiver([](std::string_view) { throw std::bad_alloc(); });
    SFTPPacketSplitter splitter(receiver);
    EXPECT_THROW(static_cast<void>(splitter.take(status)), std::bad_alloc);
    EXPECT_TRUE(splitter.isBroken());
    EXPECT_FALSE(splitter.take(status));
}
