#pragma once

#include <optional>
#include <string>

namespace TarnisTool {

/// The parts of an address of the form `ssh://[user@]host[:port][/path]`, or the same with `sftp`.
struct ServerUrl
{
    /// `[user@]host[:port]`, still percent-encoded.
    std::string authority;
    /// Decoded, with its slash in front; empty where the address ends with the server.
    std::string path;
};

/// Takes an address apart; empty for a text that begins with neither scheme. Throws UsageError for
/// one that has a password, a query or a fragment, or whose path is encoded wrongly.
std::optional<ServerUrl> parseServerUrl(const std::string& text);

/// Replaces each "%XX" by the byte that it stands for; empty where something else follows a "%", or
/// where the byte is zero.
std::optional<std::string> decodePercent(const std::string& text);

} // namespace TarnisTool
