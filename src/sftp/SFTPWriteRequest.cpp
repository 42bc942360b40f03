#include "sftp/SFTPWriteRequest.h"

#include "sftp/SFTPReplies.h"

#include <cstddef>
#include <cstring>

namespace Tarnis {

namespace {

constexpr std::uint8_t writePacket = 6;

/// Puts one field after the other into a packet.
class PacketWriter
{
public:
    explicit PacketWriter(std::vector<char>& packet)
        : next_(packet.data())
    {}

    void byte(std::uint8_t value) noexcept { *next_++ = static_cast<char>(value); }

    void number(std::uint32_t value) noexcept
    {
        for (int shift = 24; shift >= 0; shift -= 8) {
            byte(static_cast<std::uint8_t>(value >> static_cast<unsigned>(shift)));
        }
    }

    void longNumber(std::uint64_t value) noexcept
    {
        number(static_cast<std::uint32_t>(value >> 32U));
        number(static_cast<std::uint32_t>(value));
    }

    void text(const void* bytes, std::uint32_t size) noexcept
    {
        number(size);
        std::memcpy(next_, bytes, size);
        next_ += size;
    }

private:
    char* next_;
};

/// An identifier for a request that libssh does not make itself. libssh must know it: replies to
/// requests that it has not numbered are an error with some of its versions. So it is made to begin
/// a request, and to fail at sending it, for want of a channel.
std::optional<std::uint32_t> newIdentifier(sftp_file file) noexcept
{
    const sftp_session sftp = file->sftp;
    const std::uint32_t before = sftp->id_counter;
    const ssh_channel channel = sftp->channel;
    sftp->channel = nullptr;
    const int sent = sftp_async_read_begin(file, 0);
    sftp->channel = channel;
    const bool numbered = sent < 0 && sftp->id_counter == before + 1;
    return numbered ? std::optional(sftp->id_counter) : std::nullopt;
}

void fillPacket(std::vector<char>& packet, sftp_file file, std::uint32_t id, std::uint64_t offset,
                const char* data, std::uint32_t size)
{
    constexpr std::size_t lengthSize = 4;
    constexpr std::size_t fixedSize = lengthSize + 1 + 4 + 4 + 8 + 4;
    const auto handleSize = static_cast<std::uint32_t>(ssh_string_len(file->handle));
    packet.resize(fixedSize + handleSize + size);
    PacketWriter writer(packet);
    writer.number(static_cast<std::uint32_t>(packet.size() - lengthSize));
    writer.byte(writePacket);
    writer.number(id);
    writer.text(ssh_string_data(file->handle), handleSize);
    writer.longNumber(offset);
    writer.text(data, size);
}

} // namespace

bool canSendWrites() noexcept
{
    return ssh_version(SSH_VERSION_INT(0, 11, 0)) == nullptr;
}

std::optional<std::uint32_t> sendWrite(sftp_file file, std::uint64_t offset, const char* data,
                                       std::uint32_t size, std::vector<char>& packet)
{
    const auto id = newIdentifier(file);
    if (!id) {
        return std::nullopt;
    }
    fillPacket(packet, file, *id, offset, data, size);
    const auto packetSize = static_cast<std::uint32_t>(packet.size());
    const int written = ssh_channel_write(file->sftp->channel, packet.data(), packetSize);
    return written >= 0 && static_cast<std::uint32_t>(written) == packetSize ? id : std::nullopt;
}

bool collectWrite(sftp_file file, std::uint32_t id, SFTPReplyStream& stream) noexcept
{
    return collectStatus(file, id, stream) == static_cast<std::uint32_t>(SSH_FX_OK);
}

} // namespace Tarnis
