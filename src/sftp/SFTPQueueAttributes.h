#pragma once

#include "sftp/SFTPConnection.h"
#include "sftp/wire/SFTPFileAttributes.h"

#include <FileSystem/StorageSystemQueue.h>

#include <optional>

namespace Tarnis {

/// Empty: the answer has none.
std::optional<SFTPFileAttributes> attributesIn(const SFTPAnswer& answer);

/// What a server's attributes say.
FileSystem::StorageSystemAttributes attributesOf(const SFTPFileAttributes& told) noexcept;

/// What is to be sent to set attributes; without the times, which go together with the access time.
SFTPFileAttributes attributesToSend(const FileSystem::StorageSystemAttributes& wanted) noexcept;

/// The time as version 3 has it. Empty: it is none between 1970 and 2106.
std::optional<std::uint32_t> secondsOf(FileSystem::StorageSystemTimePoint time) noexcept;

/// Whether permissions and time are what they were set to, as far as the server tells them.
bool areKept(const FileSystem::StorageSystemAttributes& wanted,
             const SFTPFileAttributes& told) noexcept;

} // namespace Tarnis
