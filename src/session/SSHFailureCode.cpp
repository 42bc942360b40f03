#include <FileSystem/FailureCategory.h>
#include <Tarnis/SSHFailureCode.h>

#include <array>

namespace Tarnis {

namespace {

constexpr std::array<FileSystem::FailureMeaning, 21> meanings{{
    {SSHFailureCode::NameNotResolved, "the host name has no address",
     std::errc::address_not_available},
    {SSHFailureCode::Refused, "nobody listens at this port", std::errc::connection_refused},
    {SSHFailureCode::Unreachable, "the host cannot be reached", std::errc::host_unreachable,
     std::errc::network_unreachable},
    {SSHFailureCode::TimedOut, "no answer within the time limit", std::errc::timed_out},
    {SSHFailureCode::NoSshServer, "no SSH server answers there", std::errc::protocol_error,
     std::errc::wrong_protocol_type},
    {SSHFailureCode::NoCommonAlgorithm, "no algorithm in common with the server",
     std::errc::protocol_not_supported},
    {SSHFailureCode::Denied, "the server denies the log-in", std::errc::permission_denied},
    {SSHFailureCode::Interrupted, "interrupted", std::errc::operation_canceled,
     std::errc::interrupted},
    {SSHFailureCode::Lost, "the connection is lost", std::errc::connection_reset,
     std::errc::not_connected},
    {SSHFailureCode::NotConnected, "not connected", std::errc::not_connected},
    {SSHFailureCode::AlreadyConnected, "connected already, or about to be",
     std::errc::already_connected},
    {SSHFailureCode::OutOfTurn, "it is not the turn of this step",
     std::errc::operation_not_permitted},
    {SSHFailureCode::MoreRequired, "accepted, and the server requires more",
     std::errc::operation_in_progress},
    {SSHFailureCode::HostUnknown, "nothing vouches for the server's key"},
    {SSHFailureCode::HostKeyChanged, "the server's key has changed"},
    {SSHFailureCode::HostKeyRefused, "the server's key is not an accepted one"},
    {SSHFailureCode::KnownHostsUnreadable, "the known-hosts file cannot be read"},
    {SSHFailureCode::KeyFileMissing, "there is no such key file",
     std::errc::no_such_file_or_directory},
    {SSHFailureCode::KeyFileUnreadable, "the key file cannot be read"},
    {SSHFailureCode::NotAKey, "not a private key", std::errc::invalid_argument},
    {SSHFailureCode::WrongPassPhrase, "the pass phrase does not fit the key"},
}};

} // namespace

const std::error_category& sshFailureCategory() noexcept
{
    static const FileSystem::FailureCategory category("ssh", meanings);
    return category;
}

std::error_code make_error_code(SSHFailureCode code) noexcept
{
    return {static_cast<int>(code), sshFailureCategory()};
}

} // namespace Tarnis
