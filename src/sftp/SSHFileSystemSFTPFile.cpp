#include "handles/LibsshCompatibility.h"
#include "handles/LibsshStructures.h"
#include "sftp/LibsshRequests.h"
#include "sftp/SFTPCall.h"
#include "sftp/SFTPRanges.h"

#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHFileSystemSFTPFile.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace Tarnis {

using FileSystem::StorageSystemFileOpenModeFlag;

namespace {

// So many writes in a row may take nothing before a file counts as stuck.
constexpr int mostIdleTries = 100;

/// The handle, or an invalid one in the place of none.
std::shared_ptr<SSHHandleSFTPSessionFile>
orInvalid(std::shared_ptr<SSHHandleSFTPSessionFile>&& file)
{
    return file != nullptr ? std::move(file)
                           : std::make_shared<SSHHandleSFTPSessionFile>(nullptr, nullptr);
}

/// What a transfer comes to once the file system has no session any more, and so no package size:
/// steps of nothing would never end.
std::uint64_t withoutPackages(const SSHHandleSFTPSessionFile& file, const std::string& path)
{
    if (!file.isValid()) {
        throw FileSystem::handle_fatal_error("invalid");
    }
    failForLostSftp(path);
    return 0;
}

struct ReadRequest
{
    std::uint32_t id;
    std::uint32_t length;
};

/// Sends a request for each package of the range. False: one could not be sent, nor any after it.
bool issueReads(SSHHandleSFTPSessionFile& file, const std::string& path, std::uint64_t size,
                std::uint32_t package, std::vector<ReadRequest>& requests)
{
    for (std::uint64_t issued = 0; issued < size; issued += package) {
        const auto length =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(package, size - issued));
        const int id = callSftp(file, path, Compatibility::beginRead, length);
        if (id < 0) {
            return false;
        }
        requests.push_back({static_cast<std::uint32_t>(id), length});
    }
    return true;
}

/// receiveRead, whose failure is noted.
int receiveNoting(SSHHandleSFTPSessionFile& file, const std::string& path, char* destination,
                  const ReadRequest& request)
{
    const auto collected = callUnlessLost(file, [&](sftp_file native) {
        SFTPRefusal why;
        clearStatus(sftpOf(native));
        const int count = receiveRead(native, destination, request.length, request.id, why);
        if (count < 0) {
            noteRefusal(sftpOf(native), file.lossMark(), why, path);
        }
        return count;
    });
    if (!collected) {
        failForLostSftp(path);
    }
    return collected.value_or(SSH_ERROR);
}

/// Writes at the end of the file: some servers take the offset of each write as it is and not the
/// mode that the file was opened with, and the position afterwards is the end. To be called under
/// the lock.
ssize_t append(SSHHandleSFTPSessionFile& handle, sftp_file file, const char* data,
               std::size_t length)
{
    if (positionOf(file) != handle.getAppendEnd()) {
        sftp_seek64(file, handle.getAppendEnd());
    }
    const ssize_t written = sftp_write(file, data, length);
    handle.setAppendEnd(positionOf(file));
    return written;
}

class FileServices final : public FileSystem::StorageSystemFileServices
{
public:
    FileServices(std::shared_ptr<SSHHandleSFTPSessionFile> file, std::string path)
        : file_(std::move(file))
        , path_(std::move(path))
    {}

    std::optional<bool> readRanges(std::vector<FileSystem::StorageSystemReadRange>& ranges) override
    {
        return Tarnis::readRanges(*file_, path_, ranges);
    }

    std::optional<bool>
    writeRanges(const std::vector<FileSystem::StorageSystemWriteRange>& ranges) override
    {
        return Tarnis::writeRanges(*file_, path_, ranges);
    }

    /// Says why it failed.
    std::optional<bool> close() override
    {
        const auto lock = file_->getLock();
        const sftp_file open = file_->getResource();
        if (open == nullptr || file_->isLost()) {
            return file_->close() || failForLostSftp(path_);
        }
        const sftp_session sftp = sftpOf(open);
        const bool isClosed = file_->close();
        if (!isClosed) {
            noteSftpFailure(sftp, file_->lossMark(), path_, SFTPNotes::All, SFTPSubject::OpenFile);
        }
        return isClosed;
    }

private:
    const std::shared_ptr<SSHHandleSFTPSessionFile> file_;
    const std::string path_;
};

} // namespace

SSHFileSystemSFTPFile::SSHFileSystemSFTPFile(std::shared_ptr<SSHHandleSFTPSessionFile>&& file,
                                             const std::string& fileId,
                                             Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                                             const SSHFileSystemSFTP& fileSystem)
    : file_(orInvalid(std::move(file)))
    , fileSystem_(fileSystem)
    , fileId_(fileId)
    , mode_(mode)
{
    belongTo(fileSystem);
    provide(std::make_unique<FileServices>(file_, fileId_));
}

SSHFileSystemSFTPFile::~SSHFileSystemSFTPFile()
{
    try {
        file_->deleteMe();
    } catch (...) {
        // A destructor has nobody to tell; the SFTP session closes what is left.
    }
}

std::size_t SSHFileSystemSFTPFile::maxReadPackageSize() const
{
    return isSystemAlive() ? fileSystem_.maxReadPackageSize() : 0;
}

std::size_t SSHFileSystemSFTPFile::maxWritePackageSize() const
{
    return isSystemAlive() ? fileSystem_.maxWritePackageSize() : 0;
}

bool SSHFileSystemSFTPFile::do_isValid() const
{
    return fileSystem_.isValid();
}

std::string SSHFileSystemSFTPFile::do_fileId()
{
    return fileId_;
}

Utilities::Flags<StorageSystemFileOpenModeFlag> SSHFileSystemSFTPFile::do_mode()
{
    return mode_;
}

bool SSHFileSystemSFTPFile::do_eof() const
{
    return file_->isAtEnd();
}

bool SSHFileSystemSFTPFile::do_seek(std::uint64_t offset) const
{
    return callSftp(*file_, fileId_, sftp_seek64, offset) == SSH_OK;
}

std::optional<std::uint64_t> SSHFileSystemSFTPFile::do_tell()
{
    const auto position = callUnlessLost(*file_, sftp_tell64);
    if (!position) {
        failForLostSftp(fileId_);
    }
    return position;
}

bool SSHFileSystemSFTPFile::do_error() const
{
    return !do_isValid();
}

std::uint64_t SSHFileSystemSFTPFile::do_read(char* buffer, std::uint64_t size) const
{
    const auto package = static_cast<std::uint32_t>(maxReadPackageSize());
    if (package == 0 && size > 0) {
        return withoutPackages(*file_, fileId_);
    }
    std::vector<ReadRequest> requests;
    bool failed = !issueReads(*file_, fileId_, size, package, requests);
    std::uint64_t total = 0;
    char* destination = buffer;
    for (const auto& request : requests) {
        const int count = receiveNoting(*file_, fileId_, destination, request);
        destination += request.length;
        if (count < 0) {
            failed = true;
        } else {
            total += static_cast<std::uint64_t>(count);
        }
    }
    return failed ? 0 : total;
}

std::uint64_t SSHFileSystemSFTPFile::do_write(const char* buffer, std::uint64_t size) const
{
    const bool appends = mode_.has(StorageSystemFileOpenModeFlag::Append);
    const auto write = [this, appends](sftp_file file, const char* data, std::size_t length) {
        return appends ? append(*file_, file, data, length) : sftp_write(file, data, length);
    };
    std::uint64_t done = 0;
    int idleTries = 0;
    while (done < size) {
        const std::size_t length = std::min<std::uint64_t>(size - done, maxWritePackageSize());
        const ssize_t written = callSftp(*file_, fileId_, write, buffer + done, length);
        if (written < 0) {
            return 0;
        }
        if (length == 0) {
            return withoutPackages(*file_, fileId_);
        }
        // Nothing was taken; it may be next time, but not for ever.
        idleTries = written == 0 ? idleTries + 1 : 0;
        if (idleTries == mostIdleTries) {
            FileSystem::fail(FileSystem::FailureCode::Protocol, "no bytes are taken", fileId_);
            return 0;
        }
        done += static_cast<std::uint64_t>(written);
    }
    return done;
}

const FileSystem::FileSystem2& SSHFileSystemSFTPFile::do_fileSystem() const
{
    return fileSystem_;
}

} // namespace Tarnis
