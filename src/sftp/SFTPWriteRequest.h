#pragma once

#include "sftp/SFTPReplies.h"

#include <libssh/sftp.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace Tarnis {

// Write requests of which several are under way. To be called under the lock.

/// Sends a request to write `size` bytes at `offset` and does not wait for the reply. libssh 0.10
/// has only the function that waits.
/// \param packet is used for the request; its memory is kept for the next.
/// \return the request's identifier. Empty: it could not be sent.
std::optional<std::uint32_t> sendWrite(sftp_file file, std::uint64_t offset, const char* data,
                                       std::uint32_t size, std::vector<char>& packet);

/// Waits for the reply to such a request. False: the server refused, or the reply did not come.
/// Only then has the session a new last error.
bool collectWrite(sftp_file file, std::uint32_t id, SFTPReplyStream& stream);

/// How many bytes such a request takes beside its data.
std::uint32_t writeOverhead(sftp_file file) noexcept;

} // namespace Tarnis
