#include "sftp/SFTPWriteRequest.h"

#include "sftp/SFTPReplies.h"
#include "sftp/SFTPRequest.h"

#include <string_view>

namespace Tarnis {

namespace {

constexpr std::uint8_t writePacket = 6;

} // namespace

std::optional<std::uint32_t> sendWrite(sftp_file file, std::uint64_t offset, const char* data,
                                       std::uint32_t size, std::vector<char>& packet)
{
    const auto id = newRequestId(file);
    if (!id) {
        return std::nullopt;
    }
    const std::string_view handle(static_cast<const char*>(ssh_string_data(file->handle)),
                                  ssh_string_len(file->handle));
    constexpr std::size_t fixedSize = sizeof offset + 2 * SFTPRequestWriter::textOverhead;
    SFTPRequestWriter writer(packet, writePacket, *id, fixedSize + handle.size() + size);
    writer.text(handle);
    writer.longNumber(offset);
    writer.text({data, size});
    return sendRequest(file->sftp, packet) ? id : std::nullopt;
}

bool collectWrite(sftp_file file, std::uint32_t id, SFTPReplyStream& stream)
{
    return collectStatus(file, id, stream) == static_cast<std::uint32_t>(SSH_FX_OK);
}

std::uint32_t writeOverhead(sftp_file file) noexcept
{
    // Length, type and identifier of the packet, two lengths of texts, and the position.
    constexpr std::uint32_t fixed = 4 + 1 + 4 + 4 + 4 + 8;
    return fixed + static_cast<std::uint32_t>(ssh_string_len(file->handle));
}

} // namespace Tarnis
