#pragma once

#include "login/Target.h"

#include <cstdint>
#include <optional>
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

/// Reads `[user@]host[:port]:path`, or an address `sftp://[user@]host[:port][/path]`, also with
/// `ssh`.
///
/// The host ends at the first colon; an IPv6 address stands in brackets. Digits between that colon
/// and another one are the port: "host:22:x" is the file "x" on port 22. Digits alone, as in
/// "host:22", are refused: where a server alone is meant they would be its port. Everything after
/// is the path, colons included; a path that would be taken for a port, or that begins with a
/// colon, is written with "./" in front.
///
/// The path of an address is percent-decoded, and absolute unless it begins with "/~/"; without one
/// the login directory is meant. Throws UsageError.
/// \param port as of parseTarget().
RemotePath parseRemotePath(const std::string& text, std::optional<std::uint16_t> port = {});

/// Whether the text has the form of a remote path rather than of a local one.
bool looksRemote(const std::string& text);

/// For messages: `user@host[:port]:path`.
std::string displayRemote(const Target& target, const std::string& path);

} // namespace TarnisTool
