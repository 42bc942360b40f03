#include "sftp/SFTPStatus.h"

namespace Tarnis {

using FileSystem::FailureCode;

namespace {

// The values as the protocol numbers them. Version 3 ends with the ninth; some servers send the
// later ones all the same, and libssh has no names for the last of them.
enum Status : std::uint32_t
{
    Ok,
    EndOfFile,
    NoSuchFile,
    PermissionDenied,
    Failure,
    BadMessage,
    NoConnection,
    ConnectionLost,
    OperationUnsupported,
    InvalidHandle,
    NoSuchPath,
    FileAlreadyExists,
    WriteProtect,
    NoMedia,
    NoSpaceOnFileSystem,
    QuotaExceeded,
    UnknownPrincipal,
    LockConflict,
    DirectoryNotEmpty,
    NotADirectory,
    InvalidFileName,
    LinkLoop,
    CannotDelete,
    InvalidParameter,
    FileIsADirectory,
    ByteRangeLockConflict,
    ByteRangeLockRefused,
    DeletePending,
};

} // namespace

FailureCode failureCodeOfSftpStatus(std::uint32_t status) noexcept
{
    switch (status) {
    case NoSuchFile:
    case NoSuchPath:
        return FailureCode::NotFound;
    case PermissionDenied:
    case CannotDelete:
        return FailureCode::Denied;
    case Ok:
    case EndOfFile:
    case BadMessage:
        return FailureCode::Protocol;
    case NoConnection:
    case ConnectionLost:
        return FailureCode::ConnectionLost;
    case OperationUnsupported:
        return FailureCode::Unsupported;
    case FileAlreadyExists:
        return FailureCode::Exists;
    case WriteProtect:
        return FailureCode::ReadOnly;
    case NoSpaceOnFileSystem:
    case QuotaExceeded:
        return FailureCode::NoSpace;
    case DirectoryNotEmpty:
        return FailureCode::NotEmpty;
    case NotADirectory:
        return FailureCode::NotDirectory;
    case InvalidFileName:
    case InvalidParameter:
        return FailureCode::BadName;
    case Status::LinkLoop:
        return FailureCode::LinkLoop;
    case FileIsADirectory:
        return FailureCode::IsDirectory;
    case LockConflict:
    case ByteRangeLockConflict:
    case ByteRangeLockRefused:
    case DeletePending:
        return FailureCode::Busy;
    default:
        return FailureCode::Other;
    }
}

FailureCode failureCodeOfSftpStatus(std::uint32_t status, SFTPSubject subject) noexcept
{
    const FailureCode code = failureCodeOfSftpStatus(status);
    return subject == SFTPSubject::OpenFile && code == FailureCode::NotFound ? FailureCode::Other
                                                                             : code;
}

} // namespace Tarnis
