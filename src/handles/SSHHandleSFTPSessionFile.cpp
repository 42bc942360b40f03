#include "handles/SSHHandleSFTPSessionFile.h"

namespace Tarnis {

SSHHandleSFTPSessionFile::SSHHandleSFTPSessionFile(SSHHandleSFTPSession* sftp, sftp_file file)
    : SSHHandleObjectWrapper(sftp, file)
    , lost_(sftp != nullptr ? sftp->sharedLossMark() : std::make_shared<std::atomic<bool>>(false))
    , flow_(sftp != nullptr ? sftp->sharedFlow() : std::make_shared<SFTPFlow>())
{}

SSHHandleSFTPSessionFile::~SSHHandleSFTPSessionFile()
{
    invalidateQuietly();
}

void SSHHandleSFTPSessionFile::abandon() noexcept
{
    const sftp_file file = getResource();
    if (file != nullptr) {
        ssh_string_free(file->handle);
        file->handle = nullptr;
    }
}

bool SSHHandleSFTPSessionFile::commit()
{
    const auto lock = getLock();
    const sftp_file file = takeFile();
    if (file != nullptr) {
        committed_ = sftp_close(file) == SSH_OK;
    }
    HandleObjectCore::do_invalidate(); // NOLINT(bugprone-parent-virtual-call)
    return committed_;
}

bool SSHHandleSFTPSessionFile::isAtEnd() const
{
    const std::lock_guard<std::mutex> look(looking_);
    const sftp_file file = getResource();
    return file != nullptr && file->eof == 1;
}

void SSHHandleSFTPSessionFile::do_invalidate()
{
    // Past the base that would free the file under the eyes of isAtEnd().
    HandleObjectCore::do_invalidate(); // NOLINT(bugprone-parent-virtual-call)
    release(takeFile());
}

sftp_file SSHHandleSFTPSessionFile::takeFile()
{
    const std::lock_guard<std::mutex> nobodyLooks(looking_);
    return exchangeResource(nullptr);
}

} // namespace Tarnis
