#pragma once

#include "sftp/SFTPReplies.h"

#include <libssh/sftp.h>

#include <cstdint>
#include <optional>

namespace Tarnis {

/// Asks the server how many bytes it takes in one write, where it offers to tell. libssh asks by
/// itself from 0.11 on, but tells 32,768 too where the server does not.
///
/// To be called under the lock; waits for the reply. Empty: the server does not tell. 0: there is
/// no limit. The session's last error stays as it is.
std::optional<std::uint64_t> askForWriteLimit(sftp_file file, SFTPReplyStream& stream);

} // namespace Tarnis
