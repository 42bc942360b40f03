#pragma once

#include <FileSystem/FileSystem2.h>
#include <Tarnis/Export.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Tarnis {

class SSHHandleSFTPSession;

/// The remote file tree of an SSH session as a storage system, over one SFTP session (protocol
/// version 3). Made by SSHSession::createSFTPFileSystem. What each inherited operation does, and
/// what each failure returns, stands in FileSystem::StorageSystem and FileSystem::FileSystem2; this
/// says what is particular to SFTP.
///
/// Ownership: the SSH session owns the SFTP session; this object shares it. When the SSH session is
/// disconnected or destroyed, this object stays and is invalid: operations answer false, empty or
/// null, and one that is in flight in another thread throws
/// FileSystem::handle_fatal_error("invalid"). Open files that outlive this object are invalid.
///
/// Failures: told by results, as the base classes say; FileSystem::Failure::last() has the reason.
/// What the server refused has FailureSource::Server with the status of its answer and its text;
/// where the status says little ("failure"), the library looks what stands there and gives the code
/// for that. SSHSession::getLastError() has the server's message too, except of ranges and copies.
///
/// A lost server: an operation that finds the channel or the connection at its end, or a packet
/// that cannot be read, fails with FailureCode::ConnectionLost, and this object and its files are
/// invalid from then on, as they are once the session is seen to have no connection; every later
/// operation fails likewise, without an exception, until the session is disconnected. When it was
/// the SFTP server alone that ended, the session lives and SSHSession::createSFTPFileSystem() makes
/// a new file system.
///
/// Threads: any thread may call any operation, construction and destruction aside. The calls take
/// turns with everything else made from the SSH session, request by request, and each request
/// blocks until the server has answered, for as long as it likes; SSHSession::interrupt() frees
/// such a call. hostName() and displayPath() ask the server for nothing, but wait for their turn as
/// the others do. Operations of several requests (listings, setting a time, fileStorageInfo(),
/// making a link) let others in between and are no snapshot.
///
/// Particular to SFTP:
/// - Paths are bytes and go to the server as they are; a relative one is taken from the directory
///   that the server starts in, usually the home directory.
/// - fileRenameAs() never sends a request that is meant to replace. But servers replace on a plain
///   rename all the same, OpenSSH's sftp-server a link that leads nowhere and others whatever is
///   there; so it looks at the new path first, at the cost of a request.
/// - Some servers open what stands there though the file was to be a new one (Exclusive), or remove
///   a directory as a file, a file or link as a directory. Unless the server is known to be
///   OpenSSH's sftp-server, which does not, these operations look first too.
/// - What another client puts there after such a look is replaced, opened or removed.
/// - fileSetPermissions() asks the server for the permissions afterwards, as fileSetModTime() for
///   the time: true means that the nine bits are there.
/// - A file opened with Append is read from its start, and its position after a write is its end,
///   as on this machine; but what others append meanwhile is not counted in tell().
/// - fileReplaceAs(), and with it a copy over a file, is one atomic step where the server offers
///   the extension posix-rename@openssh.com.
/// - Times are whole seconds from 1970 to 2106; a time outside is not set. Less than a second
///   before 1970 is not outside: fractions are cut off, which makes it the first moment of 1970.
///   fileSetModTime() asks the server for the time afterwards: true means that the server has it,
///   to the second. The time of a symbolic link itself cannot be set.
/// - Block devices and sockets have the type bit of a directory: a block device passes for one, a
///   socket for none, as it has the bit of a file too. Copies look twice: a device is NotCopyable.
/// - A copy looks at the permissions of a new file where not everybody may read it, one request
///   more, and where it replaces a file at the owners of both, two more.
/// - No filter of a listing lets a name of more than 1,024 bytes through.
/// - fileStorageInfo() has figures only where the server offers the extension
///   statvfs@openssh.com.
/// - Servers disagree on the order of the two paths when a link is made. A link is read back after
///   it was made; where it cannot be made right the operation answers false and leaves no link
///   behind. What a server with the wrong order has made elsewhere is removed again. Once a link
///   came out wrong that the server would not remove, no more are made by this object.
/// - A reply to a listing that holds no name does not end it; after 100 in a row it fails.
/// - ProFTPD follows links where it should not: to look a path up takes one more request there,
///   and a link whose target exists is neither renamed, nor copied, nor replaced by a copy, since
///   the server would rename the target. It tells of relative targets as absolute ones, so a link
///   with a relative target cannot be made there.
/// - A file system that was listed while its session ended in another thread throws as above.
class TARNIS_EXPORT SSHFileSystemSFTP : public FileSystem::FileSystem2
{
public:
    /// A file system without an SFTP session: invalid from the start.
    SSHFileSystemSFTP();

    /// Takes the handle over, leaving `sftp` empty.
    explicit SSHFileSystemSFTP(std::shared_ptr<SSHHandleSFTPSession>&& sftp);

    /// As abort(); never throws.
    ~SSHFileSystemSFTP() override;

    /// Ends the SFTP session without waiting for the server: this object and every file opened on
    /// it are invalid from then on. Blocks while another thread is in a call on the session. A
    /// second call does nothing. Any thread may call it.
    void abort();

    /// Bytes of the largest read request that this file system recommends: 2,621,440; 0 without an
    /// SFTP session. Does not block.
    unsigned long long maxReadPackageSize() const;

    /// Bytes of the largest write request: 262,119; 0 without an SFTP session. Does not block.
    unsigned long long maxWritePackageSize() const;

    /// All twelve permission bits of what stands at the path, of a symbolic link its own: set-ID
    /// and sticky bits (07000) are no part of StorageSystemFileInfo. fileSetPermissions() sends
    /// every bit of the raw value that it is given. Blocks on the server. Empty: a failure, also
    /// where the server does not tell.
    std::optional<std::uint32_t> fileMode(const std::string& path) const;

protected:
    using FileSystem2::do_directoryRemove;

    std::string do_hostName() const override;
    FileSystem::StorageSystemType do_getType() const override;
    bool do_isValid() const override;
    std::uint64_t do_recommendedReadBufferSize() const override;
    std::uint64_t do_recommendedWriteBufferSize() const override;
    std::unique_ptr<FileSystem::StorageSystemFile>
    do_fileOpen(const std::string& path,
                Utilities::Flags<FileSystem::StorageSystemFileOpenModeFlag> mode,
                Utilities::Flags<FileSystem::PosixFilePermissionFlag> permissions) const override;
    std::optional<FileSystem::StorageSystemFileInfo>
    do_fileInfo(const std::string& path) const override;
    std::optional<FileSystem::StorageSystemStorageInfo>
    do_fileStorageInfo(const std::string& path) const override;
    bool do_fileRemove(const std::string& path) const override;
    bool do_fileSetPermissions(
        const std::string& path,
        const Utilities::Flags<FileSystem::PosixFilePermissionFlag>& permissions) const override;
    bool do_fileSetModTime(const std::string& path,
                           FileSystem::StorageSystemTimePoint time) const override;
    std::optional<std::string> do_fileSymbolicLinkTarget(const std::string& path) const override;
    bool do_fileSymbolicLinkRemove(const std::string& path) const override;
    std::vector<FileSystem::StorageSystemDirectoryInfo>
    do_directoryList(const std::string& path, const std::string& filter,
                     FileSystem::StorageSystemDirectoryFilterType type) const override;
    std::vector<FileSystem::StorageSystemFileInfo>
    do_directoryFileInfoList(const std::string& path, const std::string& filter,
                             FileSystem::StorageSystemDirectoryFilterType type) const override;
    std::vector<std::string>
    do_directoryListFileNames(const std::string& path, const std::string& filter,
                              FileSystem::StorageSystemDirectoryFilterType type) const override;
    std::optional<std::string>
    do_directorySymbolicLinkTarget(const std::string& path) const override;
    bool do_directorySymbolicLinkRemove(const std::string& path) const override;
    std::string do_displayPath(const std::string& path) const override;
    bool do_fileRenameAs(const std::string& path, const std::string& newPath) const override;
    bool do_fileSymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                     bool failIfLinkExists) const override;
    bool do_directoryCreateAs(
        const std::string& path, bool exclusive,
        Utilities::Flags<FileSystem::PosixFilePermissionFlag> permissions) const override;
    bool do_directoryRemove(const std::string& path) const override;
    bool do_directorySymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                          bool failIfLinkExists) const override;

private:
    class Services;

    std::shared_ptr<SSHHandleSFTPSession> handle() const;
    std::shared_ptr<SSHHandleSFTPSession> validHandle() const;
    std::optional<std::vector<FileSystem::StorageSystemFileInfo>>
    readDirectoryFully(const std::string& path) const;
    std::optional<std::string> startDirectory() const;
    std::optional<FileSystem::StorageSystemAttributes> lookAtOwned(const std::string& path) const;
    bool replaceByLink(const std::string& target, const std::string& linkPath) const;

    std::shared_ptr<SSHHandleSFTPSession> sftp_;
};

} // namespace Tarnis
