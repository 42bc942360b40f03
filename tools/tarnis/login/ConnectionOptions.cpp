#include "login/ConnectionOptions.h"

#include "Help.h"
#include "terminal/Messages.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <climits>
#include <map>

namespace TarnisTool {

namespace {

void declareSecret(CLI::App& command, SecretSource& source, const std::string& option,
                   const std::string& what)
{
    // A negative number is no descriptor, and none that big can be open.
    auto* const descriptor =
        command
            .add_option_function<int>(
                "--" + option + "-fd", [&source](const int& number) { source.descriptor = number; },
                "Read the " + what + " from this open file descriptor (one line)")
            ->check(CLI::Range(0, INT_MAX).description(""))
            ->type_name("N")
            ->group(OptionGroup::login);
    command
        .add_option("--" + option + "-env", source.variable,
                    "Take the " + what + " from this environment variable")
        ->type_name("NAME")
        ->excludes(descriptor)
        ->group(OptionGroup::login);
}

/// Takes one of these names for its value. The parser's own validators say less, or show the
/// values.
CLI::Validator nameIn(const std::map<std::string, HostKeyMode>& values, const std::string& list)
{
    const auto translate = [values, list](std::string& text) {
        const auto found = values.find(text);
        if (found == values.end()) {
            return "\"" + text + "\" is none of " + list;
        }
        text = std::to_string(static_cast<int>(found->second));
        return std::string();
    };
    return {translate, ""};
}

void declareHostKeyOptions(CLI::App& command, LoginOptions& options)
{
    const std::map<std::string, HostKeyMode> modes{{"ask", HostKeyMode::Ask},
                                                   {"new", HostKeyMode::New},
                                                   {"known", HostKeyMode::Known},
                                                   {"all", HostKeyMode::All}};
    command
        .add_option("--host-key-policy", options.hostKeyMode,
                    "What to do with a server that the known-hosts file does not vouch for:\n"
                    "ask   show its fingerprint and ask at the terminal (default)\n"
                    "new   accept and record an unknown server, refuse a changed key\n"
                    "known refuse both\n"
                    "all   accept both (whoever is on the line can pose as the server)")
        ->transform(nameIn(modes, "ask, new, known and all"))
        ->type_name("ask|new|known|all")
        ->group(OptionGroup::hostKey);
}

std::string isPort(const std::string& text)
{
    constexpr unsigned int largest = 65'535;
    unsigned int port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    const bool fits = error == std::errc() && stop == end && port > 0 && port <= largest;
    return fits ? std::string() : "\"" + text + "\" is no port: that is a number from 1 to 65535";
}

} // namespace

void declareTimeLimit(CLI::App& command, const std::string& option, std::chrono::seconds& limit,
                      const std::string& description, const std::string& group)
{
    const auto isWhole = [](const std::string& text) {
        const bool whole = text.find_first_not_of("0123456789") == std::string::npos;
        return whole ? std::string() : "\"" + text + "\" is no whole number of seconds";
    };
    command
        .add_option_function<unsigned int>(
            option,
            [&limit](const unsigned int& seconds) { limit = std::chrono::seconds(seconds); },
            description)
        ->check(isWhole)
        ->type_name("SECONDS")
        ->group(group);
}

void declareReachOptions(CLI::App& command, ReachOptions& options)
{
    command
        .add_option_function<std::uint16_t>(
            "-P,--port", [&options](const std::uint16_t& port) { options.port = port; },
            "The server's port, as if it was written behind the host")
        ->check(isPort)
        ->type_name("PORT")
        ->group(OptionGroup::connection);
    command
        .add_flag_callback("-q,--quiet", beQuiet,
                           "Show no progress and no notes; failures and warnings alone")
        ->group(OptionGroup::connection);
    declareTimeLimit(command, "--connect-timeout", options.connectTimeout,
                     "Give up connecting after this long; 0: no sooner than the library does",
                     OptionGroup::connection);
    command
        .add_option("--known-hosts", options.knownHostsFile,
                    "Known-hosts file to go by, and to record in, instead of ~/.ssh/known_hosts")
        ->type_name("FILE")
        ->group(OptionGroup::hostKey);
}

void declareLoginOptions(CLI::App& command, LoginOptions& options)
{
    declareReachOptions(command, options.reach);
    declareHostKeyOptions(command, options);
    command
        .add_option("-i,--identity", options.identities,
                    "Log in with this private key file; may be repeated. Without it: the agent's "
                    "keys, then the default ones of ~/.ssh")
        ->type_name("FILE")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->group(OptionGroup::login);
    declareSecret(command, options.password, "password", "password");
    declareSecret(command, options.passPhrase, "passphrase", "pass phrase of encrypted keys");
}

} // namespace TarnisTool
