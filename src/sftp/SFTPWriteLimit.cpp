#include "sftp/SFTPWriteLimit.h"

#include "sftp/SFTPRequest.h"

#include <string_view>

namespace Tarnis {

namespace {

constexpr std::string_view extension = "limits@openssh.com";

// Packet, read, write: the third of the numbers is preceded by two.
constexpr std::size_t numberSize = 8;
constexpr std::size_t writeLimitAt = 2 * numberSize;

std::uint64_t numberAt(std::string_view bytes, std::size_t position) noexcept
{
    std::uint64_t value = 0;
    for (const char byte : bytes.substr(position, numberSize)) {
        value = value << 8U | static_cast<unsigned char>(byte);
    }
    return value;
}

} // namespace

std::optional<std::uint64_t> askForWriteLimit(sftp_file file, SFTPReplyStream& stream)
{
    // Some servers close the channel on an extension that they did not offer.
    if (sftp_extension_supported(file->sftp, extension.data(), "1") == 0) {
        return std::nullopt;
    }
    const auto id = newRequestId(file);
    if (!id) {
        return std::nullopt;
    }
    std::vector<char> packet;
    SFTPRequestWriter writer(packet, extendedPacket, *id,
                             SFTPRequestWriter::textOverhead + extension.size());
    writer.text(extension);
    if (!sendRequest(file->sftp, packet)) {
        return std::nullopt;
    }
    const auto reply = collectExtendedReply(file, *id, stream);
    const bool isWhole = reply && reply->size() >= writeLimitAt + numberSize;
    return isWhole ? std::optional(numberAt(*reply, writeLimitAt)) : std::nullopt;
}

} // namespace Tarnis
