#pragma once

#include "login/Secret.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace TarnisTool {

/// What to do with a server that the known-hosts file does not vouch for.
enum class HostKeyMode
{
    Ask,   ///< The user decides at the terminal.
    New,   ///< An unknown server is accepted and recorded, a changed key refused.
    Known, ///< Both are refused.
    All,   ///< Both are accepted; a changed key is not recorded.
};

/// How to reach a server: the only part that every sub-command needs.
struct ReachOptions
{
    /// Given apart from the target.
    std::optional<std::uint16_t> port;
    /// For connecting and for the key exchange together; 0: the library's own limit.
    std::chrono::seconds connectTimeout{0};
    /// Empty: the user's own file. Part of connecting, since a server with several keys shows one
    /// of a kind that the file has.
    std::string knownHostsFile;
};

/// The options that all sub-commands with a login have in common.
struct LoginOptions
{
    ReachOptions reach;
    std::vector<std::string> identities;
    HostKeyMode hostKeyMode = HostKeyMode::Ask;
    SecretSource password;
    SecretSource passPhrase;
};

/// Declares an option that takes a number of whole seconds. `limit` must outlive the parsing.
void declareTimeLimit(CLI::App& command, const std::string& option, std::chrono::seconds& limit,
                      const std::string& description, const std::string& group = "Options");

/// Declare the options on a sub-command's command line. The object must outlive the parsing.
void declareReachOptions(CLI::App& command, ReachOptions& options);
void declareLoginOptions(CLI::App& command, LoginOptions& options);

} // namespace TarnisTool
