#include "WireChecks.h"
#include "sftp/wire/PacketLog.h"
#include "sftp/wire/SFTPPacketReader.h"
#include "sftp/wire/SFTPPacketSplitter.h"
#include "support/sftp/SftpWire.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace TarnisTest {

using Tarnis::SFTPPacketReader;
using Tarnis::SFTPPacketSplitter;
using Tarnis::SFTPPacketType;

namespace {

constexpr std::size_t lengthSize = 4;

/// What came of a stream.
struct Outcome
{
    std::vector<LoggedPacket> packets;
    bool isBroken;
    bool isInPacket;
    std::string reason;
};

/// \param lengths none stands for one piece.
Outcome outcomeOf(std::string_view stream, const std::vector<std::size_t>& lengths,
                  std::uint32_t limit)
{
    PacketLog log;
    SFTPPacketSplitter splitter(log, limit);
    for (std::size_t index = 0; !stream.empty(); ++index) {
        const std::size_t length =
            lengths.empty() ? stream.size() : lengths[index % lengths.size()];
        const std::string_view piece = stream.substr(0, length);
        stream.remove_prefix(piece.size());
        require(splitter.take(piece) == !splitter.isBroken(), "taking tells whether it broke");
    }
    require(log.isOrderly(), "callbacks come in order");
    require(splitter.isBroken() == !splitter.reason().empty(), "there is a reason when it broke");
    return {log.packets(), splitter.isBroken(), splitter.isInPacket(), splitter.reason()};
}

/// The packet's bytes behind its length, without padding.
std::string encoded(const LoggedPacket& packet)
{
    SftpWriter writer;
    writer.byte(static_cast<std::uint8_t>(packet.type));
    if (packet.type != SFTPPacketType::Version) {
        writer.number(packet.id);
    }
    if (packet.type == SFTPPacketType::Data) {
        writer.number(packet.size);
    }
    return writer.raw(packet.fields).bytes();
}

/// How far the packets reach, padding included; beyond the stream's end where a packet is cut off.
std::size_t endOfPackets(std::string_view stream, const std::vector<LoggedPacket>& packets)
{
    std::size_t at = 0;
    for (const LoggedPacket& packet : packets) {
        require(at < stream.size(), "each packet is in the stream");
        const std::string_view rest = stream.substr(at);
        const std::string bytes = encoded(packet);
        require(rest.substr(lengthSize, bytes.size()) == bytes, "packets are the stream's bytes");
        const std::size_t length = SFTPPacketReader(rest).number32();
        require(packet.type == SFTPPacketType::Data || bytes.size() == length,
                "a packet is as long as it says");
        at += lengthSize + length;
    }
    return at;
}

bool isWrong(std::string_view packet, std::uint32_t limit)
{
    SFTPPacketReader reader(packet);
    const std::uint32_t length = reader.number32();
    if (reader.hasFailed()) {
        return false;
    }
    if (length > limit || length < 5) {
        return true;
    }
    const bool isData = reader.number8() == static_cast<std::uint8_t>(SFTPPacketType::Data);
    static_cast<void>(reader.number32());
    const std::uint32_t size = reader.number32();
    return isData && (length < 9 || (!reader.hasFailed() && size > length - 9));
}

bool isIncomplete(std::string_view packet)
{
    SFTPPacketReader reader(packet);
    const std::uint32_t length = reader.number32();
    return reader.hasFailed() || reader.remaining() < length;
}

void requireAllIsAccountedFor(std::string_view stream, const Outcome& outcome, std::uint32_t limit)
{
    const std::size_t end = endOfPackets(stream, outcome.packets);
    const std::string_view rest = stream.substr(std::min(end, stream.size()));
    require(outcome.isBroken == isWrong(rest, limit), "it breaks where a packet is wrong only");
    if (!outcome.isBroken) {
        require(outcome.isInPacket == (end != stream.size()), "it knows when a packet is cut off");
        require(rest.empty() || isIncomplete(rest), "each packet that is there is handed over");
    }
}

} // namespace

void checkSplitting(std::string_view stream, const std::vector<std::size_t>& lengths,
                    std::uint32_t limit)
{
    const Outcome whole = outcomeOf(stream, {}, limit);
    const Outcome inPieces =
        outcomeOf(stream, lengths.empty() ? std::vector<std::size_t>{1} : lengths, limit);
    require(whole.packets == inPieces.packets, "pieces make the same packets as the whole");
    require(whole.reason == inPieces.reason, "pieces break for the same reason as the whole");
    require(whole.isInPacket == inPieces.isInPacket, "pieces end in a packet as the whole does");
    requireAllIsAccountedFor(stream, whole, limit);
    for (const LoggedPacket& packet : whole.packets) {
        checkDecoders(packet.fields);
    }
}

void require(bool condition, const char* what)
{
    if (!condition) {
        throw std::logic_error(std::string("this does not hold: ") + what);
    }
}

} // namespace TarnisTest
