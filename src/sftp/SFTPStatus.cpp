#include "sftp/SFTPStatus.h"

#include "sftp/wire/SFTPProtocol.h"

namespace Tarnis {

using FileSystem::FailureCode;

FailureCode failureCodeOfSftpStatus(std::uint32_t status) noexcept
{
    switch (static_cast<SFTPStatusCode>(status)) {
    case SFTPStatusCode::NoSuchFile:
    case SFTPStatusCode::NoSuchPath:
        return FailureCode::NotFound;
    case SFTPStatusCode::PermissionDenied:
    case SFTPStatusCode::CannotDelete:
        return FailureCode::Denied;
    case SFTPStatusCode::Ok:
    case SFTPStatusCode::EndOfFile:
    case SFTPStatusCode::BadMessage:
        return FailureCode::Protocol;
    case SFTPStatusCode::NoConnection:
    case SFTPStatusCode::ConnectionLost:
        return FailureCode::ConnectionLost;
    case SFTPStatusCode::OperationUnsupported:
        return FailureCode::Unsupported;
    case SFTPStatusCode::FileAlreadyExists:
        return FailureCode::Exists;
    case SFTPStatusCode::WriteProtect:
        return FailureCode::ReadOnly;
    case SFTPStatusCode::NoSpaceOnFileSystem:
    case SFTPStatusCode::QuotaExceeded:
        return FailureCode::NoSpace;
    case SFTPStatusCode::DirectoryNotEmpty:
        return FailureCode::NotEmpty;
    case SFTPStatusCode::NotADirectory:
        return FailureCode::NotDirectory;
    case SFTPStatusCode::InvalidFileName:
    case SFTPStatusCode::InvalidParameter:
        return FailureCode::BadName;
    case SFTPStatusCode::LinkLoop:
        return FailureCode::LinkLoop;
    case SFTPStatusCode::FileIsADirectory:
        return FailureCode::IsDirectory;
    case SFTPStatusCode::LockConflict:
    case SFTPStatusCode::ByteRangeLockConflict:
    case SFTPStatusCode::ByteRangeLockRefused:
    case SFTPStatusCode::DeletePending:
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
