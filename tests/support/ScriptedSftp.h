#pragma once

#include "support/TemporaryDirectory.h"
#include "support/sftp/SftpLog.h"
#include "support/sftp/SftpScript.h"

#include <string>
#include <vector>

namespace TarnisTest {

/// An SFTP server that does what a script says, with a directory of its own to serve. It knows
/// nothing of SSH: an SSH server runs command() as its "sftp" subsystem, once for each SFTP
/// session.
class ScriptedSftp
{
public:
    explicit ScriptedSftp(const SftpScript& script = {});

    /// What the SSH server must run, as a line for the shell.
    std::string command() const;

    /// The directory that is served. Paths on the server are real ones; relative ones begin here.
    std::string root() const { return files_.file("root"); }

    /// A path inside.
    std::string path(const std::string& name) const { return root() + "/" + name; }

    /// Holds for new sessions, and in those that run from the next request on; replies that were
    /// held back go out then.
    void setScript(const SftpScript& script) const;

    /// What has happened in all sessions so far, in this order.
    std::vector<SftpEvent> events() const;

    /// How many requests of this kind have arrived.
    std::size_t requestCount(SftpPacket request = SftpPacket::Any) const;

    /// The most requests of this kind that were unanswered at the same time in one session. A
    /// client may have had more in flight; replies that the script keeps back show it.
    std::size_t mostInFlight(SftpPacket request = SftpPacket::Any) const;

private:
    TemporaryDirectory files_;
};

} // namespace TarnisTest
