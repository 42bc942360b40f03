#pragma once

#include <FileSystem/Failure.h>

#include <cstdint>

namespace Tarnis {

/// The kind of failure that a status of an SFTP server means. Any that is not known is a failure
/// too, and so is one that says "ok" or "end of file" where that is no answer.
FileSystem::FailureCode failureCodeOfSftpStatus(std::uint32_t status) noexcept;

/// What a request names.
enum class SFTPSubject
{
    Path,
    OpenFile, ///< By its handle: it is there, whatever a server says.
};

/// The same for a request of this kind. OpenSSH calls it a missing file when an open one is read or
/// written that was not opened for that.
FileSystem::FailureCode failureCodeOfSftpStatus(std::uint32_t status, SFTPSubject subject) noexcept;

} // namespace Tarnis
