#pragma once

#include <libssh/libssh.h>
#include <libssh/sftp.h>

#include <cstdint>

/// Functions that newer versions of libssh call deprecated. They are called here alone, so that a
/// change of libssh's is met in one place. For each, the newer function is used where there is one
/// that does the same.
namespace Tarnis::Compatibility {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

#if LIBSSH_VERSION_INT >= SSH_VERSION_INT(0, 11, 0)

/// Takes in what has arrived for the session's channels. A question about a channel that is never
/// opened does that and nothing else: nothing goes to the server, and no error text is set.
inline void takeInArrived(ssh_session session)
{
    ssh_channel unopened = ssh_channel_new(session);
    if (unopened != nullptr) {
        static_cast<void>(ssh_channel_get_exit_state(unopened, nullptr, nullptr, nullptr));
        ssh_channel_free(unopened);
    }
}

#endif

/// A command's exit status, or -1 where none has come. In non-blocking mode it does not wait.
inline int channelExitStatus(ssh_channel channel)
{
#if LIBSSH_VERSION_INT >= SSH_VERSION_INT(0, 11, 0)
    std::uint32_t status = 0;
    char* signal = nullptr;
    const int result = ssh_channel_get_exit_state(channel, &status, &signal, nullptr);
    if (signal != nullptr) {
        ssh_string_free_char(signal);
        // With a signal it answers without a look at the connection (0.11.5, 0.12.2), where the
        // channel's close may have arrived: whoever waits for that would wait for ever.
        takeInArrived(ssh_channel_get_session(channel));
    }
    // SSH_AGAIN is what it says of a closed channel without a status too: trying again would never
    // end.
    return result == SSH_OK ? static_cast<int>(status) : SSH_ERROR;
#else
    return ssh_channel_get_exit_status(channel);
#endif
}

// sftp_aio_begin_read and sftp_aio_wait_read take the place of the next two, but keep the request's
// number to themselves. A reply that has arrived in another order is found by its number only.

/// Sends a request to read, and returns its number, or a negative one.
inline int beginRead(sftp_file file, std::uint32_t size)
{
    return sftp_async_read_begin(file, size);
}

/// Waits for the reply to a request to read. The number of bytes, 0 at the end of the file,
/// SSH_AGAIN in non-blocking mode, or SSH_ERROR.
inline int waitRead(sftp_file file, void* data, std::uint32_t size, std::uint32_t id)
{
    return sftp_async_read(file, data, size, id);
}

#pragma GCC diagnostic pop

} // namespace Tarnis::Compatibility
