#pragma once

#include <FileSystem/Failure.h>

#include <cstdint>

namespace Tarnis {

/// The kind of failure that a status of an SFTP server means. Any that is not known is a failure
/// too, and so is one that says "ok" or "end of file" where that is no answer.
FileSystem::FailureCode failureCodeOfSftpStatus(std::uint32_t status) noexcept;

} // namespace Tarnis
