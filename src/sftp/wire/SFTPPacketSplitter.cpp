#include "sftp/wire/SFTPPacketSplitter.h"

#include "sftp/wire/SFTPPacketReader.h"

#include <algorithm>

namespace Tarnis {

namespace {

constexpr std::size_t lengthSize = sizeof(std::uint32_t);
constexpr std::size_t typeEnd = lengthSize + sizeof(SFTPPacketType);
constexpr std::size_t idEnd = typeEnd + sizeof(std::uint32_t);
// A type and an identifier, or the number of the version in the identifier's place.
constexpr std::uint32_t shortestPacket = 5;
// And the length of the data.
constexpr std::uint32_t shortestDataReply = 9;
constexpr std::size_t dataStart = lengthSize + shortestDataReply;

std::uint32_t numberAt(std::string_view bytes, std::size_t position) noexcept
{
    return SFTPPacketReader(bytes.substr(position)).number32();
}

std::uint32_t lengthOf(std::string_view head) noexcept
{
    return numberAt(head, 0);
}

SFTPPacketType typeOf(std::string_view head) noexcept
{
    return static_cast<SFTPPacketType>(head[lengthSize]);
}

std::uint32_t dataSizeOf(std::string_view head) noexcept
{
    return numberAt(head, idEnd);
}

/// How many bytes of a packet have to be there together, as far as those that are there tell: its
/// length and its type, then all of it, or what comes before the data.
std::size_t neededOf(std::string_view head) noexcept
{
    if (head.size() < typeEnd) {
        return typeEnd;
    }
    return typeOf(head) == SFTPPacketType::Data ? dataStart : lengthSize + lengthOf(head);
}

} // namespace

bool SFTPPacketSplitter::take(std::string_view bytes)
{
    try {
        while (!bytes.empty() && !isBroken_) {
            takeNext(bytes);
        }
    } catch (...) {
        // What was taken cannot be taken again.
        isBroken_ = true;
        throw;
    }
    return !isBroken_;
}

void SFTPPacketSplitter::breakOff(std::string_view reason)
{
    if (!isBroken_) {
        isBroken_ = true;
        reason_ = reason;
    }
}

bool SFTPPacketSplitter::isInPacket() const noexcept
{
    return !isBroken_ && (!partial_.empty() || dataLeft_ > 0 || paddingLeft_ > 0);
}

void SFTPPacketSplitter::takeNext(std::string_view& bytes)
{
    if (dataLeft_ > 0) {
        continueData(bytes);
    } else if (paddingLeft_ > 0) {
        skipPadding(bytes);
    } else if (partial_.empty()) {
        takePacketInPlace(bytes);
    } else {
        collectPacket(bytes);
    }
}

void SFTPPacketSplitter::continueData(std::string_view& bytes)
{
    const std::string_view part = bytes.substr(0, dataLeft_);
    bytes.remove_prefix(part.size());
    dataLeft_ -= static_cast<std::uint32_t>(part.size());
    receiver_.dataContinues(part);
    if (dataLeft_ == 0 && !isBroken_) {
        receiver_.dataEnds();
    }
}

void SFTPPacketSplitter::skipPadding(std::string_view& bytes)
{
    const std::size_t skipped = std::min<std::size_t>(paddingLeft_, bytes.size());
    bytes.remove_prefix(skipped);
    paddingLeft_ -= static_cast<std::uint32_t>(skipped);
}

void SFTPPacketSplitter::takePacketInPlace(std::string_view& bytes)
{
    if (!isRight(bytes)) {
        return;
    }
    const std::string_view packet = bytes.substr(0, neededOf(bytes));
    bytes.remove_prefix(packet.size());
    if (packet.size() < neededOf(packet)) {
        partial_ = packet;
    } else {
        handOver(packet);
    }
}

void SFTPPacketSplitter::collectPacket(std::string_view& bytes)
{
    const std::string_view part = bytes.substr(0, neededOf(partial_) - partial_.size());
    bytes.remove_prefix(part.size());
    partial_.append(part);
    if (isRight(partial_) && partial_.size() == neededOf(partial_)) {
        handOver(partial_);
        partial_.clear();
    }
}

bool SFTPPacketSplitter::isRight(std::string_view head)
{
    if (head.size() >= lengthSize) {
        checkLength(lengthOf(head));
    }
    if (!isBroken_ && head.size() >= typeEnd && typeOf(head) == SFTPPacketType::Data) {
        checkDataReply(head);
    }
    return !isBroken_;
}

void SFTPPacketSplitter::checkLength(std::uint32_t length)
{
    if (length > limit_) {
        breakOff("an SFTP packet of " + std::to_string(length) + " bytes, more than the limit of " +
                 std::to_string(limit_));
    } else if (length < shortestPacket) {
        breakOff("an SFTP packet of " + std::to_string(length) + " bytes, too short to be one");
    }
}

void SFTPPacketSplitter::checkDataReply(std::string_view head)
{
    const std::uint32_t length = lengthOf(head);
    if (length < shortestDataReply) {
        breakOff("an SFTP data reply of " + std::to_string(length) + " bytes, too short to be one");
    } else if (head.size() >= dataStart && dataSizeOf(head) > length - shortestDataReply) {
        breakOff("an SFTP data reply of " + std::to_string(length) + " bytes that says it has " +
                 std::to_string(dataSizeOf(head)) + " bytes of data");
    }
}

void SFTPPacketSplitter::handOver(std::string_view packet)
{
    const SFTPPacketType type = typeOf(packet);
    if (type == SFTPPacketType::Data) {
        beginData(packet);
    } else if (type == SFTPPacketType::Version) {
        receiver_.packet({type, 0, packet.substr(typeEnd)});
    } else {
        receiver_.packet({type, numberAt(packet, typeEnd), packet.substr(idEnd)});
    }
}

void SFTPPacketSplitter::beginData(std::string_view head)
{
    dataLeft_ = dataSizeOf(head);
    paddingLeft_ = lengthOf(head) - shortestDataReply - dataLeft_;
    receiver_.dataBegins(numberAt(head, typeEnd), dataLeft_);
    if (dataLeft_ == 0 && !isBroken_) {
        receiver_.dataEnds();
    }
}

} // namespace Tarnis
