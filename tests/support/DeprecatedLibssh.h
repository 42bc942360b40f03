#pragma once

#include <libssh/libssh.h>
#include <libssh/sftp.h>

#include <cstdint>

/// Functions that newer versions of libssh call deprecated, and that every version has. What takes
/// their place is not in the older versions.
namespace TarnisTest::Deprecated {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

inline int exitStatus(ssh_channel channel)
{
    return ssh_channel_get_exit_status(channel);
}

inline int generateKey(ssh_keytypes_e type, ssh_key* key)
{
    return ssh_pki_generate(type, 0, key);
}

inline int beginRead(sftp_file file, std::uint32_t size)
{
    return sftp_async_read_begin(file, size);
}

inline int waitRead(sftp_file file, void* data, std::uint32_t size, std::uint32_t id)
{
    return sftp_async_read(file, data, size, id);
}

#pragma GCC diagnostic pop

} // namespace TarnisTest::Deprecated
