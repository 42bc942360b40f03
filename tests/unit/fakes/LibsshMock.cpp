#include "fakes/LibsshMock.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <iostream>

namespace TarnisTest {

using ::testing::_;
using ::testing::Return;

namespace {

std::atomic<LibsshMock*> activeMock{nullptr};

struct alignas(std::max_align_t) Block
{
    std::max_align_t bytes;
};

/// Addresses that no other object has.
Block* place(std::size_t index)
{
    static std::array<Block, 16> blocks;
    return &blocks.at(index);
}

constexpr std::size_t firstSession = 0;
constexpr std::size_t firstChannel = 6;
constexpr std::size_t onlyKey = 12;
constexpr std::size_t onlyString = 13;

} // namespace

ssh_session fakeSession(int number)
{
    return reinterpret_cast<ssh_session>(place(firstSession + static_cast<std::size_t>(number)));
}

ssh_channel fakeChannel(int number)
{
    return reinterpret_cast<ssh_channel>(place(firstChannel + static_cast<std::size_t>(number)));
}

ssh_key fakeKey()
{
    return reinterpret_cast<ssh_key>(place(onlyKey));
}

ssh_string fakeString()
{
    return reinterpret_cast<ssh_string>(place(onlyString));
}

LibsshMock::LibsshMock()
{
    behaveAsOneSession();
    behaveAsOneChannel();
    behaveAsOneSftpSession();
    activeMock = this;
}

LibsshMock::~LibsshMock()
{
    activeMock = nullptr;
}

LibsshMock& LibsshMock::active()
{
    LibsshMock* const mock = activeMock;
    if (mock == nullptr) {
        std::cerr << "libssh is called outside a test" << std::endl;
        std::abort();
    }
    return *mock;
}

void LibsshMock::behaveAsOneSession()
{
    ON_CALL(*this, ssh_new()).WillByDefault(Return(fakeSession()));
    ON_CALL(*this, ssh_connect(_)).WillByDefault([this](ssh_session) {
        connected = 1;
        return SSH_OK;
    });
    ON_CALL(*this, ssh_disconnect(_)).WillByDefault([this](ssh_session) { connected = 0; });
    ON_CALL(*this, ssh_silent_disconnect(_)).WillByDefault([this](ssh_session) { connected = 0; });
    ON_CALL(*this, ssh_is_connected(_)).WillByDefault([this](ssh_session) -> int {
        return connected;
    });
    ON_CALL(*this, ssh_is_blocking(_)).WillByDefault([this](ssh_session) -> int {
        return blocking;
    });
    ON_CALL(*this, ssh_set_blocking(_, _)).WillByDefault([this](ssh_session, int mode) {
        blocking = mode;
    });
    ON_CALL(*this, ssh_get_fd(_)).WillByDefault(Return(-1));
    ON_CALL(*this, ssh_get_error(_)).WillByDefault(Return(""));
}

void LibsshMock::behaveAsOneChannel()
{
    ON_CALL(*this, ssh_channel_new(_)).WillByDefault(Return(fakeChannel()));
    ON_CALL(*this, ssh_channel_get_session(_)).WillByDefault(Return(fakeSession()));
    ON_CALL(*this, ssh_channel_open_session(_)).WillByDefault([this](ssh_channel) {
        channelOpen = 1;
        return SSH_OK;
    });
    ON_CALL(*this, ssh_channel_close(_)).WillByDefault([this](ssh_channel) {
        channelOpen = 0;
        return SSH_OK;
    });
    ON_CALL(*this, ssh_channel_is_open(_)).WillByDefault([this](ssh_channel) -> int {
        return channelOpen;
    });
    ON_CALL(*this, ssh_channel_get_exit_status(_)).WillByDefault(Return(-1));
    ON_CALL(*this, ssh_channel_window_size(_)).WillByDefault(Return(2U << 20U));
}

void LibsshMock::behaveAsOneSftpSession()
{
    ON_CALL(*this, ssh_get_serverbanner(_)).WillByDefault(Return("SSH-2.0-OpenSSH_9.2"));
    ON_CALL(*this, ssh_get_openssh_version(_)).WillByDefault(Return(SSH_VERSION_INT(9, 2, 0)));
    ON_CALL(*this, sftp_extension_supported(_, _, _)).WillByDefault(Return(1));
    ON_CALL(*this, sftp_seek64(_, _)).WillByDefault([](sftp_file file, std::uint64_t offset) {
        file->offset = offset;
        file->eof = 0;
        return SSH_OK;
    });
    ON_CALL(*this, sftp_tell64(_)).WillByDefault([](sftp_file file) { return file->offset; });
}

} // namespace TarnisTest

using TarnisTest::LibsshMock;

// What the library calls. A program's own definitions come before those of the shared libraries it
// is linked with.
extern "C" {

ssh_session ssh_new()
{
    return LibsshMock::active().ssh_new();
}

void ssh_free(ssh_session session)
{
    LibsshMock::active().ssh_free(session);
}

int ssh_connect(ssh_session session)
{
    return LibsshMock::active().ssh_connect(session);
}

void ssh_disconnect(ssh_session session)
{
    LibsshMock::active().ssh_disconnect(session);
}

void ssh_silent_disconnect(ssh_session session)
{
    LibsshMock::active().ssh_silent_disconnect(session);
}

int ssh_is_connected(ssh_session session)
{
    return LibsshMock::active().ssh_is_connected(session);
}

int ssh_get_status(ssh_session session)
{
    return LibsshMock::active().ssh_get_status(session);
}

int ssh_is_blocking(ssh_session session)
{
    return LibsshMock::active().ssh_is_blocking(session);
}

void ssh_set_blocking(ssh_session session, int blocking)
{
    LibsshMock::active().ssh_set_blocking(session, blocking);
}

int ssh_blocking_flush(ssh_session session, int timeout)
{
    return LibsshMock::active().ssh_blocking_flush(session, timeout);
}

socket_t ssh_get_fd(ssh_session session)
{
    return LibsshMock::active().ssh_get_fd(session);
}

int ssh_get_poll_flags(ssh_session session)
{
    return LibsshMock::active().ssh_get_poll_flags(session);
}

int ssh_get_error_code(void* error)
{
    return LibsshMock::active().ssh_get_error_code(error);
}

const char* ssh_get_error(void* error)
{
    return LibsshMock::active().ssh_get_error(error);
}

int ssh_set_callbacks(ssh_session session, ssh_callbacks callbacks)
{
    return LibsshMock::active().ssh_set_callbacks(session, callbacks);
}

int ssh_options_set(ssh_session session, ssh_options_e type, const void* value)
{
    return LibsshMock::active().ssh_options_set(session, type, value);
}

int ssh_options_get(ssh_session session, ssh_options_e type, char** value)
{
    return LibsshMock::active().ssh_options_get(session, type, value);
}

int ssh_options_get_port(ssh_session session, unsigned int* port)
{
    return LibsshMock::active().ssh_options_get_port(session, port);
}

int ssh_options_copy(ssh_session source, ssh_session* copy)
{
    return LibsshMock::active().ssh_options_copy(source, copy);
}

ssh_known_hosts_e ssh_session_is_known_server(ssh_session session)
{
    return static_cast<ssh_known_hosts_e>(
        LibsshMock::active().ssh_session_is_known_server(session));
}

int ssh_session_update_known_hosts(ssh_session session)
{
    return LibsshMock::active().ssh_session_update_known_hosts(session);
}

int ssh_get_server_publickey(ssh_session session, ssh_key* key)
{
    return LibsshMock::active().ssh_get_server_publickey(session, key);
}

int ssh_pki_export_pubkey_base64(const ssh_key key, char** text)
{
    return LibsshMock::active().ssh_pki_export_pubkey_base64(key, text);
}

int ssh_get_publickey_hash(const ssh_key key, enum ssh_publickey_hash_type type,
                           unsigned char** hash, size_t* size)
{
    return LibsshMock::active().ssh_get_publickey_hash(key, type, hash, size);
}

void ssh_clean_pubkey_hash(unsigned char** hash)
{
    LibsshMock::active().ssh_clean_pubkey_hash(hash);
}

char* ssh_get_fingerprint_hash(enum ssh_publickey_hash_type type, unsigned char* hash, size_t size)
{
    return LibsshMock::active().ssh_get_fingerprint_hash(type, hash, size);
}

int ssh_pki_import_privkey_base64(const char* text, const char* passPhrase,
                                  ssh_auth_callback prompt, void* userData, ssh_key* key)
{
    return LibsshMock::active().ssh_pki_import_privkey_base64(text, passPhrase, prompt, userData,
                                                              key);
}

int ssh_pki_import_privkey_file(const char* file, const char* passPhrase, ssh_auth_callback prompt,
                                void* userData, ssh_key* key)
{
    return LibsshMock::active().ssh_pki_import_privkey_file(file, passPhrase, prompt, userData,
                                                            key);
}

void ssh_key_free(ssh_key key)
{
    LibsshMock::active().ssh_key_free(key);
}

void ssh_string_free_char(char* text)
{
    LibsshMock::active().ssh_string_free_char(text);
}

void ssh_string_free(ssh_string string)
{
    LibsshMock::active().ssh_string_free(string);
}

int ssh_userauth_list(ssh_session session, const char* user)
{
    return LibsshMock::active().ssh_userauth_list(session, user);
}

int ssh_userauth_none(ssh_session session, const char* user)
{
    return LibsshMock::active().ssh_userauth_none(session, user);
}

int ssh_userauth_password(ssh_session session, const char* user, const char* password)
{
    return LibsshMock::active().ssh_userauth_password(session, user, password);
}

int ssh_userauth_publickey(ssh_session session, const char* user, const ssh_key key)
{
    return LibsshMock::active().ssh_userauth_publickey(session, user, key);
}

int ssh_userauth_publickey_auto(ssh_session session, const char* user, const char* passPhrase)
{
    return LibsshMock::active().ssh_userauth_publickey_auto(session, user, passPhrase);
}

ssh_channel ssh_channel_new(ssh_session session)
{
    return LibsshMock::active().ssh_channel_new(session);
}

void ssh_channel_free(ssh_channel channel)
{
    LibsshMock::active().ssh_channel_free(channel);
}

ssh_session ssh_channel_get_session(ssh_channel channel)
{
    return LibsshMock::active().ssh_channel_get_session(channel);
}

int ssh_channel_open_session(ssh_channel channel)
{
    return LibsshMock::active().ssh_channel_open_session(channel);
}

int ssh_channel_request_sftp(ssh_channel channel)
{
    return LibsshMock::active().ssh_channel_request_sftp(channel);
}

int ssh_channel_request_subsystem(ssh_channel channel, const char* subsystem)
{
    return LibsshMock::active().ssh_channel_request_subsystem(channel, subsystem);
}

int ssh_channel_close(ssh_channel channel)
{
    return LibsshMock::active().ssh_channel_close(channel);
}

int ssh_channel_is_open(ssh_channel channel)
{
    return LibsshMock::active().ssh_channel_is_open(channel);
}

int ssh_channel_is_closed(ssh_channel channel)
{
    return LibsshMock::active().ssh_channel_is_closed(channel);
}

int ssh_channel_is_eof(ssh_channel channel)
{
    return LibsshMock::active().ssh_channel_is_eof(channel);
}

int ssh_channel_send_eof(ssh_channel channel)
{
    return LibsshMock::active().ssh_channel_send_eof(channel);
}

int ssh_channel_get_exit_status(ssh_channel channel)
{
    return LibsshMock::active().ssh_channel_get_exit_status(channel);
}

// Takes the place of the one before it in newer versions of libssh.
int ssh_channel_get_exit_state(ssh_channel channel, std::uint32_t* status, char** /*signal*/,
                               int* /*coreDumped*/)
{
    const int result = LibsshMock::active().ssh_channel_get_exit_status(channel);
    if (result < 0) {
        return result;
    }
    *status = static_cast<std::uint32_t>(result);
    return SSH_OK;
}

int ssh_channel_poll(ssh_channel channel, int isStderr)
{
    return LibsshMock::active().ssh_channel_poll(channel, isStderr);
}

int ssh_channel_poll_timeout(ssh_channel channel, int timeout, int isStderr)
{
    return LibsshMock::active().ssh_channel_poll_timeout(channel, timeout, isStderr);
}

int ssh_channel_read_timeout(ssh_channel channel, void* buffer, std::uint32_t size, int isStderr,
                             int timeout)
{
    return LibsshMock::active().ssh_channel_read_timeout(channel, buffer, size, isStderr, timeout);
}

std::uint32_t ssh_channel_window_size(ssh_channel channel)
{
    return LibsshMock::active().ssh_channel_window_size(channel);
}

int ssh_channel_write(ssh_channel channel, const void* data, std::uint32_t size)
{
    return LibsshMock::active().ssh_channel_write(channel, data, size);
}

int ssh_channel_request_exec(ssh_channel channel, const char* line)
{
    return LibsshMock::active().ssh_channel_request_exec(channel, line);
}

int ssh_channel_request_env(ssh_channel channel, const char* name, const char* value)
{
    return LibsshMock::active().ssh_channel_request_env(channel, name, value);
}

int ssh_channel_request_send_signal(ssh_channel channel, const char* signal)
{
    return LibsshMock::active().ssh_channel_request_send_signal(channel, signal);
}

int ssh_add_channel_callbacks(ssh_channel channel, ssh_channel_callbacks callbacks)
{
    return LibsshMock::active().ssh_add_channel_callbacks(channel, callbacks);
}

int ssh_remove_channel_callbacks(ssh_channel channel, ssh_channel_callbacks callbacks)
{
    return LibsshMock::active().ssh_remove_channel_callbacks(channel, callbacks);
}

void sftp_free(sftp_session sftp)
{
    LibsshMock::active().sftp_free(sftp);
}

sftp_file sftp_open(sftp_session sftp, const char* path, int flags, mode_t mode)
{
    return LibsshMock::active().sftp_open(sftp, path, flags, mode);
}

int sftp_close(sftp_file file)
{
    return LibsshMock::active().sftp_close(file);
}

int sftp_closedir(sftp_dir directory)
{
    return LibsshMock::active().sftp_closedir(directory);
}

void sftp_attributes_free(sftp_attributes attributes)
{
    LibsshMock::active().sftp_attributes_free(attributes);
}

void sftp_statvfs_free(sftp_statvfs_t figures)
{
    LibsshMock::active().sftp_statvfs_free(figures);
}

sftp_session sftp_new(ssh_session session)
{
    return LibsshMock::active().sftp_new(session);
}

sftp_session sftp_new_channel(ssh_session session, ssh_channel channel)
{
    return LibsshMock::active().sftp_new_channel(session, channel);
}

int sftp_init(sftp_session sftp)
{
    return LibsshMock::active().sftp_init(sftp);
}

int sftp_extension_supported(sftp_session sftp, const char* name, const char* data)
{
    return LibsshMock::active().sftp_extension_supported(sftp, name, data);
}

sftp_attributes sftp_lstat(sftp_session sftp, const char* path)
{
    return LibsshMock::active().sftp_lstat(sftp, path);
}

sftp_attributes sftp_fstat(sftp_file file)
{
    return LibsshMock::active().sftp_fstat(file);
}

sftp_attributes sftp_stat(sftp_session sftp, const char* path)
{
    return LibsshMock::active().sftp_stat(sftp, path);
}

int sftp_setstat(sftp_session sftp, const char* path, sftp_attributes attributes)
{
    return LibsshMock::active().sftp_setstat(sftp, path, attributes);
}

int sftp_chmod(sftp_session sftp, const char* path, mode_t mode)
{
    return LibsshMock::active().sftp_chmod(sftp, path, mode);
}

int sftp_rename(sftp_session sftp, const char* path, const char* newPath)
{
    return LibsshMock::active().sftp_rename(sftp, path, newPath);
}

int sftp_unlink(sftp_session sftp, const char* path)
{
    return LibsshMock::active().sftp_unlink(sftp, path);
}

int sftp_mkdir(sftp_session sftp, const char* path, mode_t mode)
{
    return LibsshMock::active().sftp_mkdir(sftp, path, mode);
}

int sftp_rmdir(sftp_session sftp, const char* path)
{
    return LibsshMock::active().sftp_rmdir(sftp, path);
}

sftp_dir sftp_opendir(sftp_session sftp, const char* path)
{
    return LibsshMock::active().sftp_opendir(sftp, path);
}

char* sftp_canonicalize_path(sftp_session sftp, const char* path)
{
    return LibsshMock::active().sftp_canonicalize_path(sftp, path);
}

int sftp_dir_eof(sftp_dir directory)
{
    return LibsshMock::active().sftp_dir_eof(directory);
}

sftp_attributes sftp_readdir(sftp_session sftp, sftp_dir directory)
{
    return LibsshMock::active().sftp_readdir(sftp, directory);
}

int sftp_symlink(sftp_session sftp, const char* target, const char* link)
{
    return LibsshMock::active().sftp_symlink(sftp, target, link);
}

char* sftp_readlink(sftp_session sftp, const char* path)
{
    return LibsshMock::active().sftp_readlink(sftp, path);
}

sftp_statvfs_t sftp_statvfs(sftp_session sftp, const char* path)
{
    return LibsshMock::active().sftp_statvfs(sftp, path);
}

int sftp_async_read_begin(sftp_file file, std::uint32_t size)
{
    return LibsshMock::active().sftp_async_read_begin(file, size);
}

int sftp_async_read(sftp_file file, void* data, std::uint32_t size, std::uint32_t id)
{
    return LibsshMock::active().sftp_async_read(file, data, size, id);
}

ssize_t sftp_write(sftp_file file, const void* data, size_t size)
{
    return LibsshMock::active().sftp_write(file, data, size);
}

int sftp_seek64(sftp_file file, std::uint64_t offset)
{
    return LibsshMock::active().sftp_seek64(file, offset);
}

std::uint64_t sftp_tell64(sftp_file file)
{
    return LibsshMock::active().sftp_tell64(file);
}

void ssh_buffer_free(ssh_buffer buffer)
{
    LibsshMock::active().ssh_buffer_free(buffer);
}

void* ssh_buffer_get(ssh_buffer buffer)
{
    return LibsshMock::active().ssh_buffer_get(buffer);
}

std::uint32_t ssh_buffer_get_len(ssh_buffer buffer)
{
    return LibsshMock::active().ssh_buffer_get_len(buffer);
}

void* ssh_string_data(ssh_string string)
{
    return LibsshMock::active().ssh_string_data(string);
}

ssh_string ssh_string_new(size_t size)
{
    return LibsshMock::active().ssh_string_new(size);
}

size_t ssh_string_len(ssh_string string)
{
    return LibsshMock::active().ssh_string_len(string);
}

int ssh_get_openssh_version(ssh_session session)
{
    return LibsshMock::active().ssh_get_openssh_version(session);
}

const char* ssh_get_serverbanner(ssh_session session)
{
    return LibsshMock::active().ssh_get_serverbanner(session);
}

const char* ssh_version(int required)
{
    return LibsshMock::active().ssh_version(required);
}
}
