#include "support/sftp/SftpWire.h"

namespace TarnisTest {

namespace {

bool hasId(SftpPacket type)
{
    return type != SftpPacket::Init && type != SftpPacket::Version;
}

} // namespace

SftpWriter& SftpWriter::byte(std::uint8_t value)
{
    bytes_.push_back(static_cast<char>(value));
    return *this;
}

SftpWriter& SftpWriter::number(std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        byte(static_cast<std::uint8_t>(value >> shift));
    }
    return *this;
}

SftpWriter& SftpWriter::number64(std::uint64_t value)
{
    number(static_cast<std::uint32_t>(value >> 32));
    return number(static_cast<std::uint32_t>(value));
}

SftpWriter& SftpWriter::text(std::string_view value)
{
    number(static_cast<std::uint32_t>(value.size()));
    return raw(value);
}

SftpWriter& SftpWriter::raw(std::string_view bytes)
{
    bytes_ += bytes;
    return *this;
}

std::uint8_t SftpReader::byte()
{
    return static_cast<std::uint8_t>(take(1).front());
}

std::uint32_t SftpReader::number()
{
    std::uint32_t value = 0;
    for (const char part : take(4)) {
        value = value << 8 | static_cast<std::uint8_t>(part);
    }
    return value;
}

std::uint64_t SftpReader::number64()
{
    const std::uint64_t high = number();
    return high << 32 | number();
}

std::string SftpReader::text()
{
    const std::size_t size = number();
    return std::string(take(size));
}

std::string_view SftpReader::take(std::size_t size)
{
    if (size > rest_.size()) {
        throw MalformedPacket("the packet ends too early");
    }
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return taken;
}

std::string encodeSftp(const SftpMessage& message)
{
    SftpWriter packet;
    packet.byte(static_cast<std::uint8_t>(message.type));
    if (hasId(message.type)) {
        packet.number(message.id);
    }
    packet.raw(message.body);
    return SftpWriter().text(packet.bytes()).bytes();
}

std::optional<SftpMessage> decodeSftp(std::string& stream)
{
    constexpr std::size_t kLengthSize = 4;
    if (stream.size() < kLengthSize) {
        return {};
    }
    const std::size_t size = SftpReader(stream).number();
    if (stream.size() - kLengthSize < size) {
        return {};
    }
    SftpReader packet(std::string_view(stream).substr(kLengthSize, size));
    SftpMessage message;
    message.type = static_cast<SftpPacket>(packet.byte());
    if (hasId(message.type)) {
        message.id = packet.number();
    }
    message.body = packet.rest();
    stream.erase(0, kLengthSize + size);
    return message;
}

} // namespace TarnisTest
