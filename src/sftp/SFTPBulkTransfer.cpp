#include "sftp/SFTPBulkTransfer.h"

#include "handles/SSHCall.h"

#include <utility>

namespace Tarnis {

using FileSystem::StorageSystemFileOpenModeFlag;

SFTPBulkTransfer::SFTPBulkTransfer(std::shared_ptr<SSHHandleSFTPSessionFile> file,
                                   const std::string& path,
                                   Utilities::Flags<StorageSystemFileOpenModeFlag> mode)
    : file_(std::move(file))
    , appends_(mode.has(StorageSystemFileOpenModeFlag::Append))
    , mayWrite_(mode.has(StorageSystemFileOpenModeFlag::Write))
    , reader_(file_, path)
    , writer_(file_, path)
{}

SFTPBulkTransfer::~SFTPBulkTransfer()
{
    try {
        SFTPBulkTransfer::finish();
    } catch (...) {
        // Nobody is left to tell; the replies are dropped with the SFTP session.
    }
}

void SFTPBulkTransfer::expectEnd(std::uint64_t offset)
{
    reader_.expectEnd(offset);
}

bool SFTPBulkTransfer::start(std::uint64_t offset)
{
    if (appends_ || !file_->isValid() || file_->isLost()) {
        return false;
    }
    reader_.start(offset);
    writer_.start(offset);
    markWriting(mayWrite_);
    return true;
}

FileSystem::StorageSystemReadResult SFTPBulkTransfer::read(char* buffer, std::uint64_t size)
{
    return reader_.read(buffer, size);
}

bool SFTPBulkTransfer::write(const char* buffer, std::uint64_t size)
{
    return writer_.write(buffer, size);
}

bool SFTPBulkTransfer::finish()
{
    markWriting(false);
    reader_.finish();
    return writer_.finish();
}

void SFTPBulkTransfer::markWriting(bool writing)
{
    if (writing == writing_) {
        return;
    }
    writing_ = writing;
    const auto lock = file_->getLock();
    auto* const sftp = file_->getSftpSession();
    if (sftp != nullptr) {
        writing ? sftp->addBulkWriter() : sftp->removeBulkWriter();
    }
}

} // namespace Tarnis
