// Trees to and from a server that is made of libssh's own functions for SFTP servers: another one
// that reads and writes packets in its own way.

#include "integration/sftp/SftpTest.h"
#include "integration/sftp/TroubledTree.h"
#include "support/LoopbackSocket.h"
#include "support/ScriptedConnection.h"

#include <FileSystem/LocalFileSystem.h>
#include <Tarnis/SSHSession.h>

#include <gmock/gmock.h>
#include <libssh/callbacks.h>
#include <libssh/libssh.h>
#include <libssh/server.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <list>
#include <map>
#include <thread>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

// What it has for servers is hidden without this.
#ifndef WITH_SERVER
#define WITH_SERVER 1
#endif
#include <libssh/sftp.h>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using FileSystem::copyTree;
using FileSystem::LocalFileSystem;
using FileSystem::removeTree;
using ::testing::IsEmpty;

/// What a handle stands for.
struct Opened
{
    UniqueFd file;
    std::vector<fs::path> entries;
    bool isListed = false;
};

/// Serves one SFTP session; paths are those of this machine.
class LibsshSftpSession
{
public:
    LibsshSftpSession(ssh_session session, ssh_channel channel)
        : channel_(channel)
        , sftp_(sftp_server_new(session, channel))
    {}

    LibsshSftpSession(const LibsshSftpSession&) = delete;
    LibsshSftpSession& operator=(const LibsshSftpSession&) = delete;

    ~LibsshSftpSession() { sftp_server_free(sftp_); }

    ssh_channel channel() const { return channel_; }

    void serve()
    {
        while (ssh_channel_poll(channel_, 0) > 0) {
            if (!isInitialised_) {
                isInitialised_ = true;
                begin();
                continue;
            }
            const std::unique_ptr<sftp_client_message_struct, void (*)(sftp_client_message)>
                message(sftp_get_client_message(sftp_), sftp_client_message_free);
            if (message == nullptr) {
                return;
            }
            answer(message.get());
        }
    }

private:
#pragma GCC diagnostic push
// Newer versions call it so, and what takes its place is not in the older ones.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

    void begin()
    {
        sftp_server_init(sftp_);
    }

#pragma GCC diagnostic pop

    static std::uint32_t statusOf(int error)
    {
        return error == ENOENT   ? SSH_FX_NO_SUCH_FILE
               : error == EACCES ? SSH_FX_PERMISSION_DENIED
                                 : SSH_FX_FAILURE;
    }

    static void outcome(sftp_client_message message, bool isDone)
    {
        const std::uint32_t status = isDone ? SSH_FX_OK : statusOf(errno);
        sftp_reply_status(message, status, isDone ? "Success" : "Failure");
    }

    void answer(sftp_client_message message)
    {
        const char* const name = sftp_client_message_get_filename(message);
        switch (sftp_client_message_get_type(message)) {
        case SSH_FXP_OPEN:
            return open(message, name);
        case SSH_FXP_OPENDIR:
            return list(message, name);
        case SSH_FXP_READDIR:
            return listMore(message);
        case SSH_FXP_READ:
            return read(message);
        case SSH_FXP_WRITE:
            return write(message);
        case SSH_FXP_CLOSE:
            return close(message);
        case SSH_FXP_LSTAT:
        case SSH_FXP_STAT:
            return describe(message, name);
        case SSH_FXP_FSTAT:
            return describe(message, pathOf(message).c_str());
        case SSH_FXP_SETSTAT:
            return set(message, name);
        case SSH_FXP_FSETSTAT:
            return set(message, pathOf(message).c_str());
        case SSH_FXP_MKDIR:
            return outcome(message, ::mkdir(name, 0755) == 0);
        case SSH_FXP_RMDIR:
            return outcome(message, ::rmdir(name) == 0);
        case SSH_FXP_REMOVE:
            return outcome(message, ::unlink(name) == 0);
        case SSH_FXP_RENAME:
            return outcome(message, ::rename(name, sftp_client_message_get_data(message)) == 0);
        default:
            sftp_reply_status(message, SSH_FX_OP_UNSUPPORTED, "Unsupported");
        }
    }

    Opened* opened(sftp_client_message message)
    {
        return static_cast<Opened*>(sftp_handle(sftp_, message->handle));
    }

    std::string pathOf(sftp_client_message message)
    {
        const Opened* const found = opened(message);
        return found != nullptr ? "/proc/self/fd/" + std::to_string(found->file.get()) : "";
    }

    void keep(sftp_client_message message, Opened&& opened)
    {
        opened_.push_back(std::move(opened));
        const ssh_string handle = sftp_handle_alloc(sftp_, &opened_.back());
        if (handle == nullptr) {
            opened_.pop_back();
            sftp_reply_status(message, SSH_FX_FAILURE, "Too many handles");
            return;
        }
        sftp_reply_handle(message, handle);
        ssh_string_free(handle);
    }

    void open(sftp_client_message message, const char* name)
    {
        const std::uint32_t flags = sftp_client_message_get_flags(message);
        const bool isRead = (flags & SSH_FXF_READ) != 0;
        const bool isWritten = (flags & SSH_FXF_WRITE) != 0;
        int mode = O_CLOEXEC | (isWritten ? isRead ? O_RDWR : O_WRONLY : O_RDONLY);
        mode |= (flags & SSH_FXF_CREAT) != 0 ? O_CREAT : 0;
        mode |= (flags & SSH_FXF_TRUNC) != 0 ? O_TRUNC : 0;
        mode |= (flags & SSH_FXF_EXCL) != 0 ? O_EXCL : 0;
        const auto attributes = message->attr;
        const bool isAsked = (attributes->flags & SSH_FILEXFER_ATTR_PERMISSIONS) != 0;
        Opened file;
        file.file = UniqueFd(::open(name, mode, isAsked ? attributes->permissions & 0777U : 0644U));
        if (file.file.isOpen()) {
            keep(message, std::move(file));
        } else {
            outcome(message, false);
        }
    }

    void list(sftp_client_message message, const char* name)
    {
        Opened directory;
        directory.file = UniqueFd(::open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!directory.file.isOpen()) {
            return outcome(message, false);
        }
        for (const auto& entry : fs::directory_iterator(name)) {
            directory.entries.push_back(entry.path());
        }
        keep(message, std::move(directory));
    }

    void listMore(sftp_client_message message)
    {
        Opened* const directory = opened(message);
        if (directory == nullptr || std::exchange(directory->isListed, true) ||
            directory->entries.empty()) {
            sftp_reply_status(message, SSH_FX_EOF, "End");
            return;
        }
        for (const fs::path& path : directory->entries) {
            sftp_attributes_struct attributes{};
            fill(attributes, path.c_str());
            const std::string name = path.filename();
            sftp_reply_names_add(message, name.c_str(), name.c_str(), &attributes);
        }
        sftp_reply_names(message);
    }

    void read(sftp_client_message message)
    {
        const Opened* const file = opened(message);
        std::string bytes(message->len, '\0');
        const ssize_t count = file == nullptr
                                  ? -1
                                  : ::pread(file->file.get(), bytes.data(), bytes.size(),
                                            static_cast<off_t>(message->offset));
        if (count > 0) {
            sftp_reply_data(message, bytes.data(), static_cast<int>(count));
        } else {
            sftp_reply_status(message, count == 0 ? SSH_FX_EOF : SSH_FX_FAILURE, "End");
        }
    }

    void write(sftp_client_message message)
    {
        const Opened* const file = opened(message);
        const std::size_t size = ssh_string_len(message->data);
        outcome(message,
                file != nullptr &&
                    ::pwrite(file->file.get(), ssh_string_data(message->data), size,
                             static_cast<off_t>(message->offset)) == static_cast<ssize_t>(size));
    }

    void close(sftp_client_message message)
    {
        Opened* const file = opened(message);
        sftp_handle_remove(sftp_, file);
        opened_.remove_if([file](const Opened& known) { return &known == file; });
        outcome(message, file != nullptr);
    }

    static bool fill(sftp_attributes_struct& attributes, const char* name)
    {
        struct stat info
        {};

        if (::lstat(name, &info) != 0 ||
            // Of what is open.
            (S_ISLNK(info.st_mode) && std::string(name).rfind("/proc/", 0) == 0 &&
             ::stat(name, &info) != 0)) {
            return false;
        }
        attributes.flags = SSH_FILEXFER_ATTR_SIZE | SSH_FILEXFER_ATTR_UIDGID |
                           SSH_FILEXFER_ATTR_PERMISSIONS | SSH_FILEXFER_ATTR_ACMODTIME;
        attributes.size = static_cast<std::uint64_t>(info.st_size);
        attributes.uid = info.st_uid;
        attributes.gid = info.st_gid;
        attributes.permissions = info.st_mode;
        attributes.atime = static_cast<std::uint32_t>(info.st_atime);
        attributes.mtime = static_cast<std::uint32_t>(info.st_mtime);
        return true;
    }

    static void describe(sftp_client_message message, const char* name)
    {
        sftp_attributes_struct attributes{};
        if (fill(attributes, name)) {
            sftp_reply_attr(message, &attributes);
        } else {
            outcome(message, false);
        }
    }

    static void set(sftp_client_message message, const char* name)
    {
        const auto wanted = message->attr;
        bool isDone = true;
        if ((wanted->flags & SSH_FILEXFER_ATTR_SIZE) != 0) {
            isDone = ::truncate(name, static_cast<off_t>(wanted->size)) == 0;
        }
        if ((wanted->flags & SSH_FILEXFER_ATTR_PERMISSIONS) != 0) {
            isDone = ::chmod(name, wanted->permissions & 07777U) == 0 && isDone;
        }
        if ((wanted->flags & SSH_FILEXFER_ATTR_ACMODTIME) != 0) {
            const timespec times[2] = {{wanted->atime, 0}, {wanted->mtime, 0}};
            isDone = ::utimensat(AT_FDCWD, name, times, 0) == 0 && isDone;
        }
        outcome(message, isDone);
    }

    ssh_channel channel_;
    sftp_session sftp_;
    bool isInitialised_ = false;
    std::list<Opened> opened_;
};

/// Serves one connection, whoever comes, with as many SFTP sessions as are asked for.
class LibsshSftpServer
{
public:
    LibsshSftpServer()
        : listener_(listenOnLoopback())
        , port_(localPort(listener_))
        , thread_([this] { serve(); })
    {}

    LibsshSftpServer(const LibsshSftpServer&) = delete;
    LibsshSftpServer& operator=(const LibsshSftpServer&) = delete;

    ~LibsshSftpServer()
    {
        isEnding_ = true;
        thread_.join();
    }

    Access access() const { return {port_, "tester", "any", {}}; }

private:
    static constexpr int moment = 20;

    void serve()
    {
        pollfd input{listener_.get(), POLLIN, 0};
        while (::poll(&input, 1, moment) == 0) {
            if (isEnding_) {
                return;
            }
        }
        UniqueFd socket = acceptConnection(listener_);
        const ssh_bind bind = ssh_bind_new();
        const bool processConfig = false;
        ssh_bind_options_set(bind, SSH_BIND_OPTIONS_PROCESS_CONFIG, &processConfig);
        ssh_bind_options_set(bind, SSH_BIND_OPTIONS_IMPORT_KEY, ssh_key_dup(scriptedHostKey()));
        const ssh_session session = ssh_new();
        ssh_set_message_callback(session, &LibsshSftpServer::onMessage, this);
        if (ssh_bind_accept_fd(bind, session, ::dup(socket.get())) == SSH_OK &&
            ssh_handle_key_exchange(session) == SSH_OK) {
            const ssh_event event = ssh_event_new();
            ssh_event_add_session(event, session);
            while (!isEnding_ && ssh_event_dopoll(event, moment) != SSH_ERROR &&
                   ssh_is_connected(session) != 0) {
                serveChannels(session);
            }
            sessions_.clear();
            ssh_event_remove_session(event, session);
            ssh_event_free(event);
        }
        ssh_free(session);
        ssh_bind_free(bind);
    }

    void serveChannels(ssh_session session)
    {
        for (const ssh_channel channel : std::exchange(wanted_, {})) {
            sessions_.push_back(std::make_unique<LibsshSftpSession>(session, channel));
        }
        for (const auto& served : sessions_) {
            served->serve();
        }
        sessions_.remove_if([](const auto& served) {
            const bool isOver = ssh_channel_is_eof(served->channel()) != 0 ||
                                ssh_channel_is_closed(served->channel()) != 0;
            if (isOver) {
                ssh_channel_close(served->channel());
            }
            return isOver;
        });
    }

    static int onMessage(ssh_session /*session*/, ssh_message message, void* self)
    {
        return static_cast<LibsshSftpServer*>(self)->take(message) ? 0 : 1;
    }

    /// False: it is refused.
    bool take(ssh_message message)
    {
        switch (ssh_message_type(message)) {
        case SSH_REQUEST_SERVICE:
            return ssh_message_service_reply_success(message) == SSH_OK;
        case SSH_REQUEST_AUTH:
            ssh_message_auth_set_methods(message, SSH_AUTH_METHOD_PASSWORD);
            return ssh_message_subtype(message) == SSH_AUTH_METHOD_PASSWORD &&
                   ssh_message_auth_reply_success(message, 0) == SSH_OK;
        case SSH_REQUEST_CHANNEL_OPEN:
            return ssh_message_channel_request_open_reply_accept(message) != nullptr;
        case SSH_REQUEST_CHANNEL:
            if (ssh_message_subtype(message) != SSH_CHANNEL_REQUEST_SUBSYSTEM) {
                return false;
            }
            wanted_.push_back(ssh_message_channel_request_channel(message));
            return ssh_message_channel_request_reply_success(message) == SSH_OK;
        default:
            return false;
        }
    }

    UniqueFd listener_;
    std::uint16_t port_;
    std::atomic<bool> isEnding_{false};
    std::vector<ssh_channel> wanted_;
    std::list<std::unique_ptr<LibsshSftpSession>> sessions_;
    std::thread thread_;
};

TEST(LibsshServerTest, TakesAndGivesATree)
{
    const TemporaryDirectory here;
    const LocalFileSystem local;
    const LibsshSftpServer server;
    SftpClient client(server.access());
    ASSERT_TRUE(client.hasFiles()) << client.session().getLastError();
    makeTree(here.file("from"));
    Trouble told;
    const auto up =
        copyTree(local, client.files(), {{here.file("from"), here.file("there")}}, told);
    EXPECT_TRUE(up.isComplete()) << up.failure.message();
    EXPECT_EQ(wholeFilesIn(here.file("there")), fileCount);
    const auto down =
        copyTree(client.files(), local, {{here.file("there"), here.file("back")}}, told);
    EXPECT_TRUE(down.isComplete()) << down.failure.message();
    EXPECT_EQ(wholeFilesIn(here.file("back")), fileCount);
    EXPECT_THAT(hiddenIn(here.path()), IsEmpty());
    const auto removal = removeTree(client.files(), {here.file("there")}, told);
    EXPECT_TRUE(removal.isComplete()) << removal.failure.message();
    EXPECT_FALSE(fs::exists(here.file("there")));
}

} // namespace
} // namespace TarnisTest
