#include "doctor/Advice.h"

#include "login/HostKeyCheck.h"

namespace TarnisTool {

namespace {

std::string adviceForChangedKey(const Target& target, const LoginOptions& options)
{
    return "Either the server was set up anew, or somebody is posing as it. Ask its administrator "
           "for the fingerprint. Only if it is the one above, remove the old key with\n"
           "  " +
           removalCommandFor(target, options.knownHostsFile) + "\nand connect again.";
}

std::string adviceForLogin(const Failure& failure, const Target& target)
{
    std::string advice = "Check the user name (" + target.user +
                         "). The public half of the key must stand in ~/.ssh/authorized_keys of "
                         "that user on the server, in a file that nobody else may write. Name a "
                         "key with --identity, a password with --password-fd or --password-env.";
    if (failure.reason().find("keyboard-interactive") != std::string::npos) {
        advice += " This program does not answer keyboard-interactive questions: a server that "
                  "takes nothing else for passwords must allow PasswordAuthentication or a key.";
    }
    return advice;
}

} // namespace

std::string adviceFor(const Failure& failure, const Target& target, const LoginOptions& options)
{
    const std::string port = std::to_string(target.port);
    switch (failure.kind()) {
    case FailureKind::UnknownHostName:
        return "Check the spelling of " + target.host +
               ", and that this machine's name service works: getent hosts " + target.host;
    case FailureKind::ConnectionRefused:
        return "The machine answers, but no server listens on port " + port +
               ". Check that the SSH server runs there, and that the port is right "
               "(host:port names another one).";
    case FailureKind::ConnectionTimedOut:
        return "Nothing answers on port " + port +
               ". The machine is off or hangs, or a firewall drops the connection. Check the "
               "address, and whether a VPN or another network is needed.";
    case FailureKind::HostUnreachable:
        return "No network leads there. Check this machine's network, its routes and its VPN.";
    case FailureKind::NoCommonAlgorithm:
        return "Server and client share no algorithm, which is usual with very old servers. The "
               "server's software has to be brought up to date.";
    case FailureKind::NotAnSshServer:
        return "What listens on port " + port +
               " closed the connection or does not speak SSH. Check the port; if it is right, see "
               "the server's log (too many connections, or this address is blocked).";
    case FailureKind::HostKeyUnknown:
        return "Compare the fingerprint with one from a safe source. If it is right, run this at a "
               "terminal, or use --host-key-policy new.";
    case FailureKind::HostKeyChanged:
        return adviceForChangedKey(target, options);
    case FailureKind::HostKeyNotChecked:
        return "Check that the known-hosts file can be read and that its lines are whole.";
    case FailureKind::LoginDenied:
        return adviceForLogin(failure, target);
    case FailureKind::ConnectionLost:
        return "The connection broke. Try again; if it breaks at the same place, see the server's "
               "log.";
    case FailureKind::CommandRefused:
        return "The server lets the user in but runs no commands: the account is for file transfer "
               "only, its shell is not allowed, or the server limits sessions. The server's "
               "administrator can tell.";
    case FailureKind::CommandTimedOut:
        return "The user's shell on the server does not get to its command. Check its start-up "
               "files.";
    case FailureKind::FileTransferRefused:
        return "The server has no SFTP subsystem, or the user's start-up files on the server write "
               "to standard output and disturb it. With OpenSSH the server's configuration needs a "
               "line such as \"Subsystem sftp internal-sftp\".";
    case FailureKind::FileProblem:
        return "The user's login directory on the server has to exist and be open to the user.";
    case FailureKind::Cancelled:
    case FailureKind::LocalProblem:
        break;
    }
    return {};
}

} // namespace TarnisTool
