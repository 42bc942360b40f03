#pragma once

#include <FileSystem/FileSystem2File.h>
#include <Tarnis/Export.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Tarnis {

class SSHFileSystemSFTP;
class SSHHandleSFTPSessionFile;

/// An open remote file. Opened by the fileOpen() of an SSHFileSystemSFTP; invalid when that is
/// gone.
///
/// What each operation does stands in FileSystem::StorageSystemFile. isValid() and error() tell of
/// the file system, not of the last read or write. Once the session was disconnected or destroyed,
/// seek(), tell(), read() and write() throw FileSystem::handle_fatal_error("invalid"); the other
/// operations answer as before, eof() with false. After the loss of the server (see
/// SSHFileSystemSFTP), and when the file system is gone, they fail without an exception, with
/// FailureCode::ConnectionLost.
///
/// read() sends requests of at most maxReadPackageSize() for its whole range before it waits for
/// the first answer; each answer lands where its request belongs, so a short one leaves a hole.
/// Any failed request makes it return 0. write() sends one package after the other, each when the
/// one before was answered; a failure makes it return 0 whatever was written before. readFully(),
/// writeFully(), readRanges(), writeRanges() and copy() keep clear of both.
///
/// readRanges(), writeRanges() and with them copy() send requests of at most 32 KiB, of which up to
/// 64 are in flight: of reads 960 KiB, of writes what the server's window has room for. All open
/// files of the file system share that, in equal parts.
///
/// Threads: one thread at a time works with a file; calls take turns with those on the SSH session
/// and everything made from it, request by request. Each request blocks until the server has
/// answered; SSHSession::interrupt() frees it.
class TARNIS_EXPORT SSHFileSystemSFTPFile : public FileSystem::FileSystem2File
{
public:
    /// Takes the handle over, leaving `file` empty. Without a handle, the file is as one whose
    /// session has ended, except that isValid() and error() still tell of the file system.
    /// \param fileId     the path that the file was opened under.
    /// \param fileSystem when it is gone, this object is invalid.
    SSHFileSystemSFTPFile(std::shared_ptr<SSHHandleSFTPSessionFile>&& file,
                          const std::string& fileId,
                          Utilities::Flags<FileSystem::StorageSystemFileOpenModeFlag> mode,
                          const SSHFileSystemSFTP& fileSystem);

    /// Closes the file and waits for the server's answer; without a session, only frees memory.
    /// Never throws.
    ~SSHFileSystemSFTPFile() override;

    /// Bytes of the largest read request: the file system's; 0 when that is gone.
    std::size_t maxReadPackageSize() const;

    /// Bytes of the largest write request: the file system's; 0 when that is gone.
    std::size_t maxWritePackageSize() const;

private:
    bool do_isValid() const override;
    std::string do_fileId() override;
    Utilities::Flags<FileSystem::StorageSystemFileOpenModeFlag> do_mode() override;
    bool do_eof() const override;
    bool do_seek(std::uint64_t offset) const override;
    std::optional<std::uint64_t> do_tell() override;
    bool do_error() const override;
    std::uint64_t do_read(char* buffer, std::uint64_t size) const override;
    std::uint64_t do_write(const char* buffer, std::uint64_t size) const override;
    const FileSystem::FileSystem2& do_fileSystem() const override;

    std::shared_ptr<SSHHandleSFTPSessionFile> file_;
    const SSHFileSystemSFTP& fileSystem_;
    std::string fileId_;
    Utilities::Flags<FileSystem::StorageSystemFileOpenModeFlag> mode_;
    [[maybe_unused]] bool spare_ = false;
};

} // namespace Tarnis
