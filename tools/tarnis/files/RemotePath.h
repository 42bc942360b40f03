#pragma once

#include "login/Target.h"

#include <string>

namespace TarnisTool {

/// A path on a server, as the user wrote it: `[user@]host[:port]:path`.
struct RemotePath
{
    Target target;
    /// What follows the last colon that belongs to the server. Relative paths begin in the login
    /// directory; the empty one is that directory.
    std::string path;
};

/// Reads `[user@]host[:port]:path`.
///
/// The host ends at the first colon; an IPv6 address stands in brackets. Digits between that colon
/// and another one are the port: "host:22:x" is the file "x" on port 22, "host:22" the file "22".
/// Everything after is the path, colons included; a path that would be taken for a port, or that
/// begins with a colon, is written with "./" in front. Throws UsageError.
RemotePath parseRemotePath(const std::string& text);

/// For messages: `user@host[:port]:path`.
std::string displayRemote(const Target& target, const std::string& path);

} // namespace TarnisTool
