#pragma once

#include <Tarnis/Export.h>

struct sftp_attributes_struct;
struct sftp_dir_struct;
struct sftp_file_struct;
struct sftp_session_struct;
struct sftp_statvfs_struct;
struct ssh_channel_struct;
struct ssh_key_struct;
struct ssh_session_struct;

namespace Tarnis {

/// Releases an object that libssh handed out, for use as the deleter of a std::unique_ptr. Every
/// specialisation ignores null and never throws. One thread at a time may be in libssh with a
/// session and what was made from it, and this counts. Those of sessions, channels, SFTP sessions,
/// files and directories may wait for the network, as each says; the others never do.
template <class T>
struct ssh_default_deleter;

/// Disconnects a session that is still connected, then frees it. Waits for no answer; but on a
/// socket in blocking mode, as libssh makes it, the goodbye waits behind what was written before,
/// for ever when the server has stopped reading.
template <>
struct TARNIS_EXPORT ssh_default_deleter<ssh_session_struct>
{
    void operator()(ssh_session_struct* session) const noexcept;
};

/// Frees a channel, closing it; leaves a channel alone whose session is already gone. In blocking
/// mode, waits until everything written on the session was sent: for ever when the server has
/// stopped reading.
template <>
struct TARNIS_EXPORT ssh_default_deleter<ssh_channel_struct>
{
    void operator()(ssh_channel_struct* channel) const noexcept;
};

/// Frees an SFTP session and its channel. In blocking mode, waits as the deleter of a channel does.
template <>
struct TARNIS_EXPORT ssh_default_deleter<sftp_session_struct>
{
    void operator()(sftp_session_struct* sftp) const noexcept;
};

/// Closes an open remote file; waits for the server's answer, for as long as it takes.
template <>
struct TARNIS_EXPORT ssh_default_deleter<sftp_file_struct>
{
    void operator()(sftp_file_struct* file) const noexcept;
};

/// Closes a directory that is being listed; waits for the server's answer.
template <>
struct TARNIS_EXPORT ssh_default_deleter<sftp_dir_struct>
{
    void operator()(sftp_dir_struct* directory) const noexcept;
};

/// Frees the attributes of a remote file.
template <>
struct TARNIS_EXPORT ssh_default_deleter<sftp_attributes_struct>
{
    void operator()(sftp_attributes_struct* attributes) const noexcept;
};

/// Frees the figures of a remote volume.
template <>
struct TARNIS_EXPORT ssh_default_deleter<sftp_statvfs_struct>
{
    void operator()(sftp_statvfs_struct* figures) const noexcept;
};

/// Frees a key, wiping a private one.
template <>
struct TARNIS_EXPORT ssh_default_deleter<ssh_key_struct>
{
    void operator()(ssh_key_struct* key) const noexcept;
};

/// Frees a string.
template <>
struct TARNIS_EXPORT ssh_default_deleter<char>
{
    void operator()(char* text) const noexcept;
};

} // namespace Tarnis
