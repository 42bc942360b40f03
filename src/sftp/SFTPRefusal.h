#pragma once

#include <libssh/sftp.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace Tarnis {

/// Why a request brought nothing, as its reply tells. With neither a status nor a text there was no
/// reply: libssh, or the channel, knows why.
struct SFTPRefusal
{
    std::optional<std::uint32_t> status;
    std::string text;
};

/// Notes it as the failure of an operation on the open file of this path; false. To be called under
/// the lock, before the next call on the SFTP session.
bool noteRefusal(sftp_session sftp, std::atomic<bool>& lost, const SFTPRefusal& refusal,
                 const std::string& path);

} // namespace Tarnis
