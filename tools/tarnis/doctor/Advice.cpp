#include "doctor/Advice.h"

#include "login/HostKeyCheck.h"

#include <array>
#include <string_view>

namespace TarnisTool {

namespace {

struct KnownAdvice
{
    FailureKind kind;
    /// With {user}, {host} and {port} for those of the target.
    std::string_view text;
};

constexpr std::array<KnownAdvice, 15> knownAdvice{{
    {FailureKind::UnknownHostName,
     "Check the spelling of {host}, and that this machine's name service works: getent hosts "
     "{host}"},
    {FailureKind::ConnectionRefused,
     "The machine answers, but no server listens on port {port}. Check that the SSH server runs "
     "there, and that the port is right (host:port names another one)."},
    {FailureKind::ConnectionTimedOut,
     "Nothing answers on port {port}. The machine is off or hangs, or a firewall drops the "
     "connection. Check the address, and whether a VPN or another network is needed."},
    {FailureKind::HostUnreachable,
     "No network leads there. Check this machine's network, its routes and its VPN."},
    {FailureKind::NoCommonAlgorithm,
     "Server and client share no algorithm, which is usual with very old servers. The server's "
     "software has to be brought up to date."},
    {FailureKind::NotAnSshServer,
     "What listens on port {port} closed the connection or does not speak SSH. Check the port; if "
     "it is right, see the server's log (too many connections, or this address is blocked)."},
    {FailureKind::HostKeyUnknown,
     "Compare the fingerprint with one from a safe source. If it is right, run this at a terminal, "
     "or use --host-key-policy new."},
    {FailureKind::HostKeyNotChecked,
     "Check that the known-hosts file can be read and that its lines are whole."},
    {FailureKind::LoginDenied,
     "Check the user name ({user}). The public half of the key must stand in "
     "~/.ssh/authorized_keys of that user on the server, in a file that nobody else may write. "
     "Name a key with --identity, a password with --password-fd or --password-env."},
    {FailureKind::ConnectionLost,
     "The connection broke. Try again; if it breaks at the same place, see the server's log."},
    {FailureKind::CommandRefused,
     "The server lets the user in but runs no commands: the account is for file transfer only, its "
     "shell is not allowed, or the server limits sessions. The server's administrator can tell."},
    {FailureKind::CommandTimedOut,
     "The user's shell on the server does not get to its command. Check its start-up files."},
    {FailureKind::SessionRefused,
     "The server lets the user in but opens no session, or no further one: the account is for "
     "forwarding only, or the server limits sessions (MaxSessions with OpenSSH). The server's "
     "administrator can tell."},
    {FailureKind::FileTransferRefused,
     "The server has no SFTP subsystem, or the user's start-up files on the server write to "
     "standard output and disturb it. With OpenSSH the server's configuration needs a line such as "
     "\"Subsystem sftp internal-sftp\"."},
    {FailureKind::FileProblem,
     "The user's login directory on the server has to exist and be open to the user."},
}};

constexpr std::string_view noKeyboardInteractive =
    " This program does not answer keyboard-interactive questions: a server that takes nothing "
    "else for passwords must allow PasswordAuthentication or a key.";

std::string valueOf(std::string_view placeholder, const Target& target)
{
    if (placeholder == "{port}") {
        return std::to_string(target.port);
    }
    return placeholder == "{host}" ? target.host : target.user;
}

std::string fillIn(std::string_view text, const Target& target)
{
    std::string result;
    for (auto open = text.find('{'); open != std::string_view::npos; open = text.find('{')) {
        const auto close = text.find('}', open);
        result += text.substr(0, open);
        result += valueOf(text.substr(open, close + 1 - open), target);
        text.remove_prefix(close + 1);
    }
    return result + std::string(text);
}

/// With the command on a line of its own, to be copied.
std::string adviceForChangedKey(const Target& target, const LoginOptions& options)
{
    return "Either the server was set up anew, or somebody is posing as it. Ask its administrator "
           "for the fingerprint. Only if it is the one above, remove the old key with\n"
           "  " +
           removalCommandFor(target, options.reach.knownHostsFile) + "\nand connect again.";
}

std::string_view supplementFor(const Failure& failure, const std::set<std::string>& offered)
{
    const bool wantsAnswers =
        failure.kind() == FailureKind::LoginDenied && offered.count("keyboard-interactive") > 0;
    return wantsAnswers ? noKeyboardInteractive : std::string_view();
}

} // namespace

std::string adviceFor(const Failure& failure, const Target& target, const LoginOptions& options,
                      const std::set<std::string>& offered)
{
    if (failure.kind() == FailureKind::HostKeyChanged) {
        return adviceForChangedKey(target, options);
    }
    for (const KnownAdvice& advice : knownAdvice) {
        if (advice.kind == failure.kind()) {
            return fillIn(advice.text, target) + std::string(supplementFor(failure, offered));
        }
    }
    return {};
}

} // namespace TarnisTool
