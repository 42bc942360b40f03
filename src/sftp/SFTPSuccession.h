#pragma once

#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <optional>

namespace Tarnis {

class SSHHandleSFTPSessionFile;

// What an open remote file gets in the place of another. By its handle: the server may be the
// superuser, whose attention somebody could turn elsewhere by the path. Both block on the server,
// and throw handle_fatal_error("invalid") when the handle is invalid. No request on the file may be
// under way.

/// As FileSystem::StorageSystemFile::AttributeKeeper::narrow: one look, and a request where it
/// shows that the server did not keep to the permissions that it was given.
bool narrowPermissions(SSHHandleSFTPSessionFile& file,
                       Utilities::Flags<FileSystem::PosixFilePermissionFlag> permissions);

/// As FileSystem::StorageSystemFile::AttributeKeeper::succeed: a look, and requests for what
/// differs.
bool succeedTo(SSHHandleSFTPSessionFile& file,
               const std::optional<FileSystem::StorageSystemOwner>& owner,
               Utilities::Flags<FileSystem::PosixFilePermissionFlag> permissions);

} // namespace Tarnis
