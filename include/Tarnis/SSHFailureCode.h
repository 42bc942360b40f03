#pragma once

#include <Tarnis/Export.h>

#include <system_error>
#include <type_traits>

namespace Tarnis {

/// Why an operation of a session failed, where FileSystem::FailureCode has no word for it. Both
/// kinds of code come out of FileSystem::Failure::last().code(). A std::error_code made of one
/// compares equal to the std::errc that stand beside it, as the framework's do: whoever asks for a
/// std::errc need not know whose code it is. Values are never changed or used again; new ones may
/// come.
///
///     if (!session.connect()) {
///         const auto why = FileSystem::Failure::last().code();
///         if (why == Tarnis::SSHFailureCode::NameNotResolved) { ... }
///         if (why == std::errc::timed_out) { ... }
///     }
enum class SSHFailureCode : int
{
    NameNotResolved = 1,  ///< The host name has no address. address_not_available
    Refused,              ///< Nobody listens at the port. connection_refused
    Unreachable,          ///< No way leads to the host. host_unreachable, network_unreachable
    TimedOut,             ///< No answer within the time limit. timed_out
    NoSshServer,          ///< What answers is no SSH server of today, or hung up before it said so.
                          ///< protocol_error, wrong_protocol_type
    NoCommonAlgorithm,    ///< Both speak SSH, without an algorithm in common; see
                          ///< SSHSession::getAlgorithmMismatch(). protocol_not_supported
    Denied,               ///< The server did not let the user in; see
                          ///< SSHSession::getOfferedMethods(). permission_denied
    Interrupted,          ///< SSHSession::interrupt() broke the connection off.
                          ///< operation_canceled, interrupted
    Lost,                 ///< The connection has ended or broken. connection_reset, not_connected
    NotConnected,         ///< There is no connection, and none was lost. not_connected
    AlreadyConnected,     ///< There is a connection, or one is being made. already_connected
    OutOfTurn,            ///< Another step comes first, or this one is done already.
                          ///< operation_not_permitted
    MoreRequired,         ///< The method was accepted, and the server wants another one on top.
                          ///< operation_in_progress
    HostUnknown,          ///< Nothing vouches for the server: not in the known-hosts file, or not
                          ///< with a key of this type.
    HostKeyChanged,       ///< The known-hosts file has another key for the server.
    HostKeyRefused,       ///< The server's key is not among those that are accepted.
    KnownHostsUnreadable, ///< The known-hosts file could not be read, so nobody knows whether it
                          ///< vouches for the server; Failure::entry() names it.
    KeyFileMissing,       ///< The file of the private key is not there.
                          ///< no_such_file_or_directory
    KeyFileUnreadable,    ///< The file of the private key cannot be read.
    NotAKey,              ///< The file or the text is no private key that can be used.
                          ///< invalid_argument
    WrongPassPhrase,      ///< The pass phrase is not that of the private key, or the key needs one.
};

/// The category of these codes.
TARNIS_EXPORT const std::error_category& sshFailureCategory() noexcept;

/// For std::error_code, which finds it by itself.
TARNIS_EXPORT std::error_code make_error_code(SSHFailureCode code) noexcept;

} // namespace Tarnis

template <>
struct std::is_error_code_enum<Tarnis::SSHFailureCode> : std::true_type
{};
