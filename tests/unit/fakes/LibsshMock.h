#pragma once

#include <gmock/gmock.h>
#include <libssh/callbacks.h>
#include <libssh/libssh.h>
#include <libssh/sftp.h>

#include <atomic>

namespace TarnisTest {

/// Stands in for libssh in the whole program: the functions that the library calls are defined
/// beside this class, come before libssh's own, and end up in the one object that exists.
///
/// Without expectations it behaves as a session that can be connected and whose every call
/// succeeds at once; reads and polls find nothing, and no command has reported an exit status.
/// Paths stand nowhere, directories are empty, and the server is OpenSSH's. Each test says how
/// strict it is by choosing NiceMock or StrictMock.
class LibsshMock
{
public:
    LibsshMock();
    LibsshMock(const LibsshMock&) = delete;
    LibsshMock& operator=(const LibsshMock&) = delete;
    virtual ~LibsshMock();

    /// The object that stands in at present; ends the program when there is none.
    static LibsshMock& active();

    /// What ssh_is_blocking answers and ssh_set_blocking sets.
    std::atomic<int> blocking{1};
    /// What ssh_is_connected answers; ssh_connect sets it, the disconnects clear it.
    std::atomic<int> connected{0};
    /// What ssh_channel_is_open answers; opening and closing a channel sets it.
    std::atomic<int> channelOpen{0};

    MOCK_METHOD(ssh_session, ssh_new, ());
    MOCK_METHOD(void, ssh_free, (ssh_session));
    MOCK_METHOD(int, ssh_connect, (ssh_session));
    MOCK_METHOD(void, ssh_disconnect, (ssh_session));
    MOCK_METHOD(void, ssh_silent_disconnect, (ssh_session));
    MOCK_METHOD(int, ssh_is_connected, (ssh_session));
    MOCK_METHOD(int, ssh_get_status, (ssh_session));
    MOCK_METHOD(int, ssh_is_blocking, (ssh_session));
    MOCK_METHOD(void, ssh_set_blocking, (ssh_session, int));
    MOCK_METHOD(int, ssh_blocking_flush, (ssh_session, int));
    MOCK_METHOD(socket_t, ssh_get_fd, (ssh_session));
    MOCK_METHOD(int, ssh_get_poll_flags, (ssh_session));
    MOCK_METHOD(const char*, ssh_get_error, (void*));
    MOCK_METHOD(int, ssh_get_error_code, (void*));
    MOCK_METHOD(int, ssh_set_callbacks, (ssh_session, ssh_callbacks));

    MOCK_METHOD(int, ssh_options_set, (ssh_session, ssh_options_e, const void*));
    MOCK_METHOD(int, ssh_options_get, (ssh_session, ssh_options_e, char**));
    MOCK_METHOD(int, ssh_options_get_port, (ssh_session, unsigned int*));
    MOCK_METHOD(int, ssh_options_copy, (ssh_session, ssh_session*));

    // An int, so that it can answer what no version of the enumeration has.
    MOCK_METHOD(int, ssh_session_is_known_server, (ssh_session));
    MOCK_METHOD(int, ssh_session_update_known_hosts, (ssh_session));
    MOCK_METHOD(int, ssh_get_server_publickey, (ssh_session, ssh_key*));
    MOCK_METHOD(int, ssh_pki_export_pubkey_base64, (ssh_key, char**));
    MOCK_METHOD(int, ssh_get_publickey_hash,
                (ssh_key, ssh_publickey_hash_type, unsigned char**, size_t*));
    MOCK_METHOD(void, ssh_clean_pubkey_hash, (unsigned char**));
    MOCK_METHOD(char*, ssh_get_fingerprint_hash, (ssh_publickey_hash_type, unsigned char*, size_t));
    MOCK_METHOD(int, ssh_pki_import_privkey_base64,
                (const char*, const char*, ssh_auth_callback, void*, ssh_key*));
    MOCK_METHOD(int, ssh_pki_import_privkey_file,
                (const char*, const char*, ssh_auth_callback, void*, ssh_key*));
    MOCK_METHOD(void, ssh_key_free, (ssh_key));
    MOCK_METHOD(void, ssh_string_free_char, (char*));
    MOCK_METHOD(void, ssh_string_free, (ssh_string));

    MOCK_METHOD(int, ssh_userauth_list, (ssh_session, const char*));
    MOCK_METHOD(int, ssh_userauth_none, (ssh_session, const char*));
    MOCK_METHOD(int, ssh_userauth_password, (ssh_session, const char*, const char*));
    MOCK_METHOD(int, ssh_userauth_publickey, (ssh_session, const char*, ssh_key));
    MOCK_METHOD(int, ssh_userauth_publickey_auto, (ssh_session, const char*, const char*));

    MOCK_METHOD(ssh_channel, ssh_channel_new, (ssh_session));
    MOCK_METHOD(void, ssh_channel_free, (ssh_channel));
    MOCK_METHOD(ssh_session, ssh_channel_get_session, (ssh_channel));
    MOCK_METHOD(int, ssh_channel_open_session, (ssh_channel));
    MOCK_METHOD(int, ssh_channel_request_sftp, (ssh_channel));
    MOCK_METHOD(int, ssh_channel_request_subsystem, (ssh_channel, const char*));
    MOCK_METHOD(int, ssh_channel_close, (ssh_channel));
    MOCK_METHOD(int, ssh_channel_is_open, (ssh_channel));
    MOCK_METHOD(int, ssh_channel_is_eof, (ssh_channel));
    MOCK_METHOD(int, ssh_channel_is_closed, (ssh_channel));
    MOCK_METHOD(int, ssh_channel_send_eof, (ssh_channel));
    MOCK_METHOD(int, ssh_channel_get_exit_status, (ssh_channel));
    MOCK_METHOD(std::uint32_t, ssh_channel_window_size, (ssh_channel));
    MOCK_METHOD(int, ssh_channel_poll, (ssh_channel, int));
    MOCK_METHOD(int, ssh_channel_poll_timeout, (ssh_channel, int, int));
    MOCK_METHOD(int, ssh_channel_read_timeout, (ssh_channel, void*, std::uint32_t, int, int));
    MOCK_METHOD(int, ssh_channel_write, (ssh_channel, const void*, std::uint32_t));
    MOCK_METHOD(int, ssh_channel_request_exec, (ssh_channel, const char*));
    MOCK_METHOD(int, ssh_channel_request_env, (ssh_channel, const char*, const char*));
    MOCK_METHOD(int, ssh_channel_request_send_signal, (ssh_channel, const char*));
    MOCK_METHOD(int, ssh_add_channel_callbacks, (ssh_channel, ssh_channel_callbacks));
    MOCK_METHOD(int, ssh_remove_channel_callbacks, (ssh_channel, ssh_channel_callbacks));

    MOCK_METHOD(void, sftp_free, (sftp_session));
    MOCK_METHOD(sftp_file, sftp_open, (sftp_session, const char*, int, mode_t));
    MOCK_METHOD(int, sftp_close, (sftp_file));
    MOCK_METHOD(int, sftp_closedir, (sftp_dir));
    MOCK_METHOD(void, sftp_attributes_free, (sftp_attributes));
    MOCK_METHOD(void, sftp_statvfs_free, (sftp_statvfs_t));
    MOCK_METHOD(sftp_session, sftp_new, (ssh_session));
    MOCK_METHOD(sftp_session, sftp_new_channel, (ssh_session, ssh_channel));
    MOCK_METHOD(int, sftp_init, (sftp_session));
    MOCK_METHOD(int, sftp_extension_supported, (sftp_session, const char*, const char*));
    MOCK_METHOD(sftp_attributes, sftp_lstat, (sftp_session, const char*));
    MOCK_METHOD(sftp_attributes, sftp_fstat, (sftp_file));
    MOCK_METHOD(sftp_attributes, sftp_stat, (sftp_session, const char*));
    MOCK_METHOD(int, sftp_setstat, (sftp_session, const char*, sftp_attributes));
    MOCK_METHOD(int, sftp_chmod, (sftp_session, const char*, mode_t));
    MOCK_METHOD(int, sftp_rename, (sftp_session, const char*, const char*));
    MOCK_METHOD(int, sftp_unlink, (sftp_session, const char*));
    MOCK_METHOD(int, sftp_mkdir, (sftp_session, const char*, mode_t));
    MOCK_METHOD(int, sftp_rmdir, (sftp_session, const char*));
    MOCK_METHOD(sftp_dir, sftp_opendir, (sftp_session, const char*));
    MOCK_METHOD(sftp_attributes, sftp_readdir, (sftp_session, sftp_dir));
    MOCK_METHOD(int, sftp_dir_eof, (sftp_dir));
    MOCK_METHOD(int, sftp_symlink, (sftp_session, const char*, const char*));
    MOCK_METHOD(char*, sftp_readlink, (sftp_session, const char*));
    MOCK_METHOD(char*, sftp_canonicalize_path, (sftp_session, const char*));
    MOCK_METHOD(sftp_statvfs_t, sftp_statvfs, (sftp_session, const char*));
    MOCK_METHOD(int, sftp_async_read_begin, (sftp_file, std::uint32_t));
    MOCK_METHOD(int, sftp_async_read, (sftp_file, void*, std::uint32_t, std::uint32_t));
    MOCK_METHOD(ssize_t, sftp_write, (sftp_file, const void*, size_t));
    MOCK_METHOD(int, sftp_seek64, (sftp_file, std::uint64_t));
    MOCK_METHOD(std::uint64_t, sftp_tell64, (sftp_file));
    MOCK_METHOD(void, ssh_buffer_free, (ssh_buffer));
    MOCK_METHOD(void*, ssh_buffer_get, (ssh_buffer));
    MOCK_METHOD(std::uint32_t, ssh_buffer_get_len, (ssh_buffer));
    MOCK_METHOD(void*, ssh_string_data, (ssh_string));
    MOCK_METHOD(ssh_string, ssh_string_new, (size_t));
    MOCK_METHOD(size_t, ssh_string_len, (ssh_string));
    MOCK_METHOD(int, ssh_get_openssh_version, (ssh_session));
    MOCK_METHOD(const char*, ssh_get_serverbanner, (ssh_session));
    MOCK_METHOD(const char*, ssh_version, (int));

private:
    void behaveAsOneSession();
    void behaveAsOneChannel();
    void behaveAsOneSftpSession();
};

// Objects to hand to code that calls libssh. Their insides are nobody's business here, so any
// address will do; equal numbers give equal objects.
ssh_session fakeSession(int number = 0);
ssh_channel fakeChannel(int number = 0);
ssh_key fakeKey();
ssh_string fakeString();

} // namespace TarnisTest
