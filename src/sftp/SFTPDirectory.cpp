#include "sftp/SFTPDirectory.h"

#include "handles/SSHFailure.h"
#include "sftp/SFTPCall.h"
#include "sftp/SFTPObstacle.h"

#include <Tarnis/SSHDefaultDeleter.h>

#include <cstring>
#include <utility>

namespace Tarnis {

namespace {

// So many replies in a row may hold no entry before the server counts as broken.
constexpr int mostEmptyReplies = 100;

/// Forgets the server's handle of the directory: closing it then asks the server for nothing and
/// only frees memory.
void abandon(sftp_dir directory) noexcept
{
    ssh_string_free(directory->handle);
    directory->handle = nullptr;
}

/// To be called under the lock of the SFTP session that the directory was opened on.
void close(sftp_dir directory, const SSHHandleSFTPSession& owner)
{
    if (directory == nullptr) {
        return;
    }
    const sftp_session sftp = owner.getResource();
    if (sftp == nullptr || owner.isLost()) {
        abandon(directory);
        sftp_closedir(directory);
        return;
    }
    sftp->errnum = SSH_FX_OK;
    if (sftp_closedir(directory) < 0) {
        // A reply that could not be read may have been another one, which somebody waits for.
        markIfLost(sftp, owner.lossMark());
    }
}

/// Puts an error's text where the session's own errors stand; libssh has no function for it. The
/// text fits, since it comes from a place of the same size.
void copyErrorText(ssh_session from, ssh_session to) noexcept
{
    const char* const text = ssh_get_error(from);
    if (text != nullptr && *text != '\0') {
        std::memcpy(const_cast<char*>(ssh_get_error(to)), text, std::strlen(text) + 1);
    }
}

/// Lets go of a reply that says that it holds no entry. libssh takes that for an error and would
/// look into the same reply again for ever; without the reply, it asks for the next one. Relies on
/// sftp_dir_struct being public and on a reply staying in `buffer` until its last entry was read:
/// so in 0.10 to 0.12.
bool dropEmptyReply(sftp_dir directory) noexcept
{
    if (directory->buffer == nullptr || directory->count != 0) {
        return false;
    }
    ssh_buffer_free(directory->buffer);
    directory->buffer = nullptr;
    return true;
}

/// Reads an entry without its owner's and its group's names.
///
/// From OpenSSH, libssh takes these out of the line that "ls -l" would print. Where that line is
/// too short for them, it reads beyond its end, or ends the listing, with later versions. It knows
/// OpenSSH by the session's banner, so it is shown a session that has none.
sftp_attributes readEntry(sftp_dir directory, ssh_session unconnected) noexcept
{
    const sftp_session sftp = directory->sftp;
    if (unconnected == nullptr) {
        return sftp_readdir(sftp, directory);
    }
    const ssh_session session = std::exchange(sftp->session, unconnected);
    const sftp_attributes entry = sftp_readdir(sftp, directory);
    sftp->session = session;
    if (entry == nullptr) {
        copyErrorText(unconnected, session);
    }
    return entry;
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
    sftp->errnum = SSH_FX_OK;
    Reading reading{readEntry(directory_, unconnected_.get())};
    if (reading.entry == nullptr && directory_->eof == 0) {
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
    const ssh_session errors = unconnected_ != nullptr ? unconnected_.get() : sftp->session;
    const bool isLost = markIfLost(sftp, sftp_->lossMark(), errors);
    if (sftp->errnum > SSH_FX_EOF && !isOutOfStep(errors, sftp->errnum)) {
        failBySftpStatus(static_cast<std::uint32_t>(sftp->errnum), {}, path_);
        return;
    }
    FileSystem::fail(isLost ? FileSystem::FailureCode::ConnectionLost
                            : FileSystem::FailureCode::Protocol,
                     FileSystem::FailureSource::Transport, 0,
                     isLost ? transportFailureText(sftp->session) : sftpErrorText(sftp), path_);
}

bool SFTPDirectory::isAtEnd() const
{
    return directory_ != nullptr && sftp_dir_eof(directory_) != 0;
}

} // namespace Tarnis
