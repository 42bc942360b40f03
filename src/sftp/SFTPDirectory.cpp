#include "sftp/SFTPDirectory.h"

#include "handles/SSHFailure.h"
#include "sftp/SFTPCall.h"
#include "sftp/SFTPObstacle.h"

#include <Tarnis/SSHDefaultDeleter.h>

#include <utility>

namespace Tarnis {

namespace {

// So many replies in a row may hold no entry before the server counts as broken.
constexpr int mostEmptyReplies = 100;

/// To be called under the lock of the SFTP session that the directory was opened on.
void close(sftp_dir directory, const SSHHandleSFTPSession& owner)
{
    if (directory == nullptr) {
        return;
    }
    const sftp_session sftp = owner.getResource();
    if (sftp == nullptr || owner.isLost()) {
        dropHandle(directory);
        sftp_closedir(directory);
        return;
    }
    clearStatus(sftp);
    if (sftp_closedir(directory) < 0) {
        // A reply that could not be read may have been another one, which somebody waits for.
        markIfLost(sftp, owner.lossMark());
    }
}

} // namespace

SFTPDirectory::SFTPDirectory(std::shared_ptr<SSHHandleSFTPSession> sftp, const std::string& path)
    : sftp_(std::move(sftp))
    , path_(path)
    , directory_(callSftp(*sftp_, path, sftp_opendir, path.c_str()))
    , unconnected_(directory_ != nullptr ? ssh_new() : nullptr)
{
    if (directory_ == nullptr) {
        explainListing(*sftp_, path);
    }
}

SFTPDirectory::~SFTPDirectory()
{
    try {
        const auto lock = sftp_->getLock();
        close(directory_, *sftp_);
    } catch (...) {
        // Without the lock, nothing of libssh's may be touched: the memory is lost.
    }
}

SFTPAttributes SFTPDirectory::next()
{
    if (directory_ == nullptr) {
        return nullptr;
    }
    for (int emptyReplies = 0; emptyReplies <= mostEmptyReplies; ++emptyReplies) {
        // The lock is released between two questions, for other threads.
        const auto reading = callUnlessLost(*sftp_, [this](sftp_session raw) { return read(raw); });
        if (!reading) {
            failForLostSftp(path_);
            return nullptr;
        }
        if (!reading->wasEmptyReply) {
            return SFTPAttributes(reading->entry);
        }
    }
    FileSystem::fail(FileSystem::FailureCode::Protocol, FileSystem::FailureSource::Server, 0,
                     "the server goes on answering without a name", path_);
    return nullptr;
}

SFTPDirectory::Reading SFTPDirectory::read(sftp_session sftp)
{
    clearStatus(sftp);
    Reading reading{readEntry(directory_, unconnected_.get())};
    if (reading.entry == nullptr && !Tarnis::isAtEnd(directory_)) {
        reading.wasEmptyReply = dropEmptyReply(directory_);
        if (!reading.wasEmptyReply) {
            noteFailure(sftp);
        }
    }
    return reading;
}

/// As noteSftpFailure(), but libssh tells no answers here from what it finds wrong by itself, and
/// drops the text that came with a status.
void SFTPDirectory::noteFailure(sftp_session sftp) const
{
    // The SFTP session's own session may still have the error of an earlier call.
    const ssh_session errors = unconnected_ != nullptr ? unconnected_.get() : sessionOf(sftp);
    const bool isLost = markIfLost(sftp, sftp_->lossMark(), errors);
    if (statusOf(sftp) > SSH_FX_EOF && !isOutOfStep(errors, statusOf(sftp))) {
        failBySftpStatus(static_cast<std::uint32_t>(statusOf(sftp)), {}, path_);
        return;
    }
    FileSystem::fail(isLost ? FileSystem::FailureCode::ConnectionLost
                            : FileSystem::FailureCode::Protocol,
                     FileSystem::FailureSource::Transport, 0,
                     isLost ? transportFailureText(sessionOf(sftp)) : sftpErrorText(sftp), path_);
}

bool SFTPDirectory::isAtEnd() const
{
    return directory_ != nullptr && sftp_dir_eof(directory_) != 0;
}

} // namespace Tarnis
