#include "sftp/SFTPRequest.h"

#include "handles/LibsshCompatibility.h"

#include <cstring>

namespace Tarnis {

// libssh must know the identifier: replies to requests that it has not numbered are an error with
// some of its versions. So it is made to begin a request, and to fail at sending it, for want of a
// channel.
std::optional<std::uint32_t> newRequestId(sftp_file file) noexcept
{
    const sftp_session sftp = file->sftp;
    const std::uint32_t before = sftp->id_counter;
    const int status = sftp->errnum;
    const ssh_channel channel = sftp->channel;
    sftp->channel = nullptr;
    const int sent = Compatibility::beginRead(file, 0);
    sftp->channel = channel;
    sftp->errnum = status;
    const bool numbered = sent < 0 && sftp->id_counter == before + 1;
    return numbered ? std::optional(sftp->id_counter) : std::nullopt;
}

SFTPRequestWriter::SFTPRequestWriter(std::vector<char>& packet, std::uint8_t type, std::uint32_t id,
                                     std::size_t bodySize)
{
    constexpr std::size_t lengthSize = 4;
    constexpr std::size_t headSize = 1 + 4;
    packet.resize(lengthSize + headSize + bodySize);
    next_ = packet.data();
    number(static_cast<std::uint32_t>(headSize + bodySize));
    byte(type);
    number(id);
}

void SFTPRequestWriter::number(std::uint32_t value) noexcept
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        byte(static_cast<std::uint8_t>(value >> static_cast<unsigned>(shift)));
    }
}

void SFTPRequestWriter::longNumber(std::uint64_t value) noexcept
{
    number(static_cast<std::uint32_t>(value >> 32U));
    number(static_cast<std::uint32_t>(value));
}

void SFTPRequestWriter::text(std::string_view bytes) noexcept
{
    number(static_cast<std::uint32_t>(bytes.size()));
    std::memcpy(next_, bytes.data(), bytes.size());
    next_ += bytes.size();
}

bool sendRequest(sftp_session sftp, const std::vector<char>& packet) noexcept
{
    const auto size = static_cast<std::uint32_t>(packet.size());
    const int written = ssh_channel_write(sftp->channel, packet.data(), size);
    return written >= 0 && static_cast<std::uint32_t>(written) == size;
}

} // namespace Tarnis
