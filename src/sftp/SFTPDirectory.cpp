#include "sftp/SFTPDirectory.h"

#include "handles/SSHCall.h"

#include <Tarnis/SSHDefaultDeleter.h>

#include <cstring>
#include <utility>

namespace Tarnis {

namespace {

/// Forgets the server's handle of the directory: closing it then asks the server for nothing and
/// only frees memory.
void abandon(sftp_dir directory) noexcept
{
    ssh_string_free(directory->handle);
    directory->handle = nullptr;
}

/// To be called under the lock of the SFTP session that the directory was opened on.
void close(sftp_dir directory, bool sessionIsGone) noexcept
{
    if (directory == nullptr) {
        return;
    }
    if (sessionIsGone) {
        abandon(directory);
    }
    ssh_default_deleter<sftp_dir_struct>{}(directory);
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
    , directory_(callLocked(*sftp_, sftp_opendir, path.c_str()))
    , unconnected_(directory_ != nullptr ? ssh_new() : nullptr)
{}

SFTPDirectory::~SFTPDirectory()
{
    try {
        const auto lock = sftp_->getLock();
        close(directory_, sftp_->getResource() == nullptr);
    } catch (...) {
        // Without the lock, nothing of libssh's may be touched: the memory is lost.
    }
}

SFTPAttributes SFTPDirectory::next()
{
    if (directory_ == nullptr) {
        return nullptr;
    }
    return SFTPAttributes(callLocked(
        *sftp_, [this](sftp_session) { return readEntry(directory_, unconnected_.get()); }));
}

bool SFTPDirectory::isAtEnd() const
{
    return directory_ != nullptr && sftp_dir_eof(directory_) != 0;
}

} // namespace Tarnis
