#pragma once

#include "support/sftp/SftpProtocol.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace TarnisTest {

/// Builds packets and parts of them: numbers in network order, strings with their length in front.
class SftpWriter
{
public:
    SftpWriter& byte(std::uint8_t value);
    SftpWriter& number(std::uint32_t value);
    SftpWriter& number64(std::uint64_t value);
    SftpWriter& text(std::string_view value);
    /// As it is, without a length.
    SftpWriter& raw(std::string_view bytes);

    const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};

/// A packet did not hold what its kind promises.
class MalformedPacket : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Takes a packet apart. Throws MalformedPacket when it ends too early.
class SftpReader
{
public:
    explicit SftpReader(std::string_view bytes)
        : rest_(bytes)
    {}

    std::uint8_t byte();
    std::uint32_t number();
    std::uint64_t number64();
    std::string text();

    std::string_view rest() const { return rest_; }

private:
    std::string_view take(std::size_t size);

    std::string_view rest_;
};

/// A packet without its length: Init and Version have no request id, all others do.
struct SftpMessage
{
    SftpPacket type = SftpPacket::Any;
    std::uint32_t id = 0;
    /// What follows the id.
    std::string body;
};

/// The bytes of a packet as they go over the line.
std::string encodeSftp(const SftpMessage& message);

/// Removes the first packet from `stream` and returns it; empty while it is incomplete. Throws
/// MalformedPacket when it is too short to be one.
std::optional<SftpMessage> decodeSftp(std::string& stream);

} // namespace TarnisTest
