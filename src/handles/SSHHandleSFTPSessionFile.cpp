#include "handles/SSHHandleSFTPSessionFile.h"

#include "handles/LibsshStructures.h"
#include "handles/SFTPLoss.h"

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
        dropHandle(file);
    }
}

bool SSHHandleSFTPSessionFile::close()
{
    const auto lock = getLock();
    const sftp_file file = takeFile();
    if (file != nullptr) {
        isClosedWell_ = closeFile(file);
    }
    HandleObjectCore::do_invalidate(); // NOLINT(bugprone-parent-virtual-call)
    return isClosedWell_;
}

bool SSHHandleSFTPSessionFile::isAtEnd() const
{
    const std::lock_guard<std::mutex> look(looking_);
    const sftp_file file = getResource();
    return file != nullptr && Tarnis::isAtEnd(file);
}

void SSHHandleSFTPSessionFile::do_invalidate()
{
    // Skips the base class, which would free the file while another thread's isAtEnd() looks at it.
    // takeFile() waits for that.
    HandleObjectCore::do_invalidate(); // NOLINT(bugprone-parent-virtual-call)
    const sftp_file file = takeFile();
    if (file != nullptr) {
        closeFile(file);
    }
}

/// Whether the server confirmed it.
bool SSHHandleSFTPSessionFile::closeFile(sftp_file file)
{
    if (!hasHandle(file)) {
        // Abandoned: the SFTP session may be gone altogether, and nobody is asked.
        sftp_close(file);
        return false;
    }
    const sftp_session sftp = sftpOf(file);
    clearStatus(sftp);
    const int result = sftp_close(file);
    if (result < 0) {
        // A reply that could not be read may have been another one, which somebody waits for.
        markIfLost(sftp, lossMark());
    }
    return result == SSH_OK;
}

/// What the caller closes then. A lost SFTP session is not asked: nobody would answer.
sftp_file SSHHandleSFTPSessionFile::takeFile()
{
    if (isLost()) {
        abandon();
    }
    const std::lock_guard<std::mutex> nobodyLooks(looking_);
    return exchangeResource(nullptr);
}

} // namespace Tarnis
