#pragma once

#include "login/Target.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TarnisTool {

// No system takes longer paths: only a server that makes its tree up gets there.
constexpr std::size_t longestPath = 16'384;

/// Whether a name that a server gave can be that of one entry of a directory. Any other could lead
/// out of the directory.
bool isEntryName(const std::string& name);

/// A path as a file system takes it: never empty, and always with a directory in front that
/// operations on parents can name ("./a" for "a", "." for "").
std::string fileIdOf(const std::string& path);

/// The same without what fileIdOf() put in front, for messages.
std::string textOf(const std::string& fileId);

/// The path of an entry below a directory, as the user would write it: the name alone below "".
std::string joinPath(const std::string& directory, const std::string& name);

/// What stands between the slashes of a path.
std::vector<std::string> partsOf(const std::string& path);

/// The last component of a path; empty for what has no name of its own: "", "/", and paths that
/// end in "." or "..".
std::string nameOf(const std::string& path);

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

/// Throws UsageError for a text that reads like a remote path, unless something stands there on
/// this machine.
/// \param rule what the command takes where.
void requireLocalPath(const std::string& text, const std::string& rule);

/// For messages: `user@host[:port]:path`.
std::string displayRemote(const Target& target, const std::string& path);

} // namespace TarnisTool
