#pragma once

#include <FileSystem/Failure.h>

#include <stdexcept>
#include <string>

namespace TarnisTool {

/// What the program answers to its caller, besides the exit code of a remote command.
namespace ExitCode {

constexpr int success = 0;
constexpr int failure = 1;
constexpr int usage = 2;
/// As a remote command uses the small numbers itself, a failure of our own has one that hardly any
/// command uses, the same as with ssh.
constexpr int execFailure = 255;

} // namespace ExitCode

/// What kind of thing went wrong. Scripts see one exit code for all of them; the advice that the
/// program gives differs.
enum class FailureKind
{
    UnknownHostName,
    ConnectionRefused,
    ConnectionTimedOut,
    HostUnreachable,
    NoCommonAlgorithm,
    NotAnSshServer,
    HostKeyUnknown,
    HostKeyChanged,
    HostKeyNotChecked,
    LoginDenied,
    ConnectionLost,
    CommandRefused,
    CommandTimedOut,
    SessionRefused,
    FileTransferRefused,
    FileProblem,
    NothingThere,
    Cancelled,
    LocalProblem,
};

/// Ends a sub-command: the program prints the text as its one line on standard error and exits with
/// the sub-command's failure code.
class Failure : public std::runtime_error
{
public:
    /// The line reads "<what> <where>: <why>", for example "cannot connect to host: Connection
    /// refused".
    Failure(FailureKind kind, const std::string& what, const std::string& where,
            const std::string& why);

    FailureKind kind() const noexcept { return kind_; }

    /// The reason alone.
    const std::string& reason() const noexcept { return reason_; }

private:
    FailureKind kind_;
    std::string reason_;
};

/// The command line, or something that it names, cannot be right: exit code 2, and nothing was
/// done.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What an operation of the library says of why it failed, for people: the cause, and the path that
/// it is about where that is none of the operation's own.
std::string reasonOf(const FileSystem::Failure& why);

/// Whether it failed because the server is not there any more.
bool isLoss(const FileSystem::Failure& why);

/// The first text, with the second in parentheses where both have something to say.
std::string joinReasons(const std::string& first, const std::string& second);

/// How an option that nobody knows is named to the user: without the value given to it, which may
/// have been meant for a secret.
std::string optionName(const std::string& argument);

} // namespace TarnisTool
