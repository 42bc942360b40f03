#pragma once

#include "handles/SSHHandleSFTPSession.h"
#include "sftp/SFTPAttributes.h"

#include <libssh/sftp.h>

#include <memory>
#include <string>

namespace Tarnis {

/// A remote directory that is being read.
///
/// Others get their turn on the SFTP session between two entries, and one of them may end it. The
/// directory is no handle of its own, so it looks at the SFTP session's before each step.
class SFTPDirectory
{
public:
    /// Opens the directory; blocks until the server has answered. Notes why that failed, as next()
    /// does. Throws handle_fatal_error("invalid") when the handle is invalid.
    SFTPDirectory(std::shared_ptr<SSHHandleSFTPSession> sftp, const std::string& path);
    SFTPDirectory(const SFTPDirectory&) = delete;
    SFTPDirectory& operator=(const SFTPDirectory&) = delete;

    /// Closes the directory and waits for the server's answer, unless the SFTP session is gone.
    ~SFTPDirectory();

    /// The next entry, in the server's order. Null: there are no more, the reading failed, or the
    /// directory could not be opened. A reply without any entry is not the end: the server is asked
    /// again, a bounded number of times. Blocks and throws as the constructor does.
    SFTPAttributes next();

    /// Whether the server has said that there are no more entries.
    bool isAtEnd() const;

private:
    struct Reading
    {
        sftp_attributes entry = nullptr;
        bool wasEmptyReply = false;
    };

    Reading read(sftp_session sftp);
    void noteFailure(sftp_session sftp) const;

    std::shared_ptr<SSHHandleSFTPSession> sftp_;
    std::string path_;
    sftp_dir directory_ = nullptr;
    /// Never connected to anything.
    std::unique_ptr<ssh_session_struct, ssh_default_deleter<ssh_session_struct>> unconnected_;
};

} // namespace Tarnis
