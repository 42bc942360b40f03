#pragma once

#include <cstdint>
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

/// The machine that a sub-command works on, as its user wrote it.
struct Target
{
    static constexpr std::uint16_t defaultPort = 22;

    /// Empty: the local user's name.
    std::string user;
    /// A name, or an address without brackets.
    std::string host;
    std::uint16_t port = defaultPort;

    /// For messages: "user@host", with ":port" where it is not the usual one.
    std::string display() const;

    /// Whether both were written to mean the same.
    bool operator==(const Target& other) const
    {
        return user == other.user && host == other.host && port == other.port;
    }

    /// As a known-hosts file names it: "host", or "[host]:port" where the port is not the usual
    /// one.
    std::string knownHostsName() const;
};

/// Reads `[user@]host[:port]`, or an address `ssh://[user@]host[:port]`, also with `sftp`. An IPv6
/// address stands in brackets where a port follows and may do so elsewhere, and always does so in
/// an address. The user name may contain "@". Throws UsageError.
/// \param port what the user gave apart from the text, if anything; the text must not contradict
/// it.
Target parseTarget(const std::string& text, std::optional<std::uint16_t> port = {});

/// The server in what stands between "ssh://" and the path.
/// \param text the whole, for messages.
Target parseAuthority(const std::string& authority, const std::string& text,
                      std::optional<std::uint16_t> port);

} // namespace TarnisTool
