#include <Tarnis/SSHDefaultDeleter.h>

#include <libssh/libssh.h>
#include <libssh/sftp.h>

namespace Tarnis {

namespace {

/// A deleter runs in destructors, so nothing may leave it: libssh calls back into code that may
/// throw.
template <class Release>
void swallowingExceptions(Release release) noexcept
{
    try {
        release();
    } catch (...) {
        // The object is given up; nobody is left to tell.
    }
}

} // namespace

void ssh_default_deleter<ssh_session_struct>::operator()(ssh_session_struct* session) const noexcept
{
    if (session == nullptr) {
        return;
    }
    swallowingExceptions([session] {
        if (ssh_is_connected(session) != 0) {
            ssh_disconnect(session);
        }
    });
    swallowingExceptions([session] { ssh_free(session); });
}

void ssh_default_deleter<ssh_channel_struct>::operator()(ssh_channel_struct* channel) const noexcept
{
    swallowingExceptions([channel] {
        // Without its session, a channel has nothing left that could be released safely.
        if (channel != nullptr && ssh_channel_get_session(channel) != nullptr) {
            ssh_channel_free(channel);
        }
    });
}

void ssh_default_deleter<sftp_session_struct>::operator()(sftp_session_struct* sftp) const noexcept
{
    if (sftp != nullptr) {
        swallowingExceptions([sftp] { sftp_free(sftp); });
    }
}

void ssh_default_deleter<sftp_file_struct>::operator()(sftp_file_struct* file) const noexcept
{
    if (file != nullptr) {
        swallowingExceptions([file] { static_cast<void>(sftp_close(file)); });
    }
}

void ssh_default_deleter<sftp_dir_struct>::operator()(sftp_dir_struct* directory) const noexcept
{
    if (directory != nullptr) {
        swallowingExceptions([directory] { static_cast<void>(sftp_closedir(directory)); });
    }
}

void ssh_default_deleter<sftp_attributes_struct>::operator()(
    sftp_attributes_struct* attributes) const noexcept
{
    if (attributes != nullptr) {
        swallowingExceptions([attributes] { sftp_attributes_free(attributes); });
    }
}

void ssh_default_deleter<sftp_statvfs_struct>::operator()(
    sftp_statvfs_struct* figures) const noexcept
{
    if (figures != nullptr) {
        swallowingExceptions([figures] { sftp_statvfs_free(figures); });
    }
}

void ssh_default_deleter<ssh_key_struct>::operator()(ssh_key_struct* key) const noexcept
{
    if (key != nullptr) {
        swallowingExceptions([key] { ssh_key_free(key); });
    }
}

void ssh_default_deleter<char>::operator()(char* text) const noexcept
{
    if (text != nullptr) {
        swallowingExceptions([text] { ssh_string_free_char(text); });
    }
}

} // namespace Tarnis
