#pragma once

#include "handles/SSHHandleSFTPSessionFile.h"
#include "sftp/SFTPReplies.h"

#include <functional>
#include <string>

namespace Tarnis {

/// What came of an attempt to send something.
enum class SFTPAttempt
{
    Done,
    Failed,
    TooEarly, ///< The server has to read, or to send, something else first.
};

/// Makes an attempt once, under the lock. A failure is noted with the path.
SFTPAttempt attemptNow(SSHHandleSFTPSessionFile& file, const std::string& path,
                       const std::function<SFTPAttempt(sftp_file)>& attempt);

/// The same, again and again until it is not too early any more. In between the lock is free, and
/// what the server sends is taken in for whoever it belongs to: a server may read on only when it
/// has got rid of its replies.
SFTPAttempt attemptInTurn(SSHHandleSFTPSessionFile& file, const std::string& path,
                          SFTPReplyStream& stream,
                          const std::function<SFTPAttempt(sftp_file)>& attempt);

} // namespace Tarnis
