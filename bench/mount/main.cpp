// Mounts a directory of a server by the library's queue, as far as files are read and written: for
// the comparison with a program that does nothing else. One thread, as the queue has one.
//
// Usage: tarnis_bench_mount LOGIN... REMOTE-DIRECTORY MOUNT-POINT

#include "mount/RemoteFile.h"
#include "support/Require.h"
#include "support/TarnisSession.h"

#include <Tarnis/SSHFileSystemSFTP.h>

#include <cerrno>
#include <exception>
#include <iostream>
#include <optional>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

#define FUSE_USE_VERSION 31 // NOLINT(cppcoreguidelines-macro-usage): what libfuse asks for
#include <fuse3/fuse.h>

namespace {

using namespace TarnisBench;

using FileSystem::StorageSystemAttributes;
using FileSystem::StorageSystemFileOpenModeFlag;
using Queue = FileSystem::StorageSystemQueue;
using Mode = StorageSystemFileOpenModeFlag;

constexpr std::size_t loginArguments = 5;

/// What every operation needs.
struct Mount
{
    Queue& queue;
    std::string root;

    std::string pathOf(const char* path) const { return root + path; }
};

const Mount& mount()
{
    return *static_cast<const Mount*>(fuse_get_context()->private_data);
}

RemoteFile& fileOf(const fuse_file_info* info)
{
    return *reinterpret_cast<RemoteFile*>(info->fh); // NOLINT(performance-no-int-to-ptr)
}

mode_t kindOf(const StorageSystemAttributes& attributes)
{
    const auto type = attributes.type.value_or(FileSystem::StorageSystemFileTypeFlag::Regular);
    return FileSystem::isDirectory(type)      ? S_IFDIR
           : FileSystem::isSymbolicLink(type) ? S_IFLNK
                                              : S_IFREG;
}

mode_t permissionsOf(const StorageSystemAttributes& attributes)
{
    return attributes.permissions ? attributes.permissions->raw() : 0;
}

int getAttributes(const char* path, struct stat* status, fuse_file_info* /*info*/)
{
    std::optional<int> answer;
    mount().queue.lookUp(mount().pathOf(path), [&](const FileSystem::Failure& failure,
                                                   const StorageSystemAttributes& attributes) {
        answer = errnoOf(failure);
        *status = {};
        status->st_mode = kindOf(attributes) | permissionsOf(attributes);
        status->st_size = static_cast<off_t>(attributes.size.value_or(0));
        status->st_nlink = 1;
    });
    while (!answer) {
        mount().queue.pump();
    }
    return *answer;
}

int openAs(const char* path, fuse_file_info* info, Queue::OpenMode mode, mode_t permissions)
{
    constexpr mode_t nineBits = 0777;
    try {
        auto file = std::make_unique<RemoteFile>(mount().queue, mount().pathOf(path), mode,
                                                 Queue::Permissions(permissions & nineBits));
        info->fh = reinterpret_cast<std::uintptr_t>(file.release());
        return 0;
    } catch (const std::system_error& error) {
        return -error.code().value();
    }
}

int openFile(const char* path, fuse_file_info* info)
{
    const bool mayWrite = (info->flags & O_ACCMODE) != O_RDONLY;
    Queue::OpenMode mode = mayWrite ? Mode::Write : Mode::Read;
    if ((info->flags & O_ACCMODE) == O_RDWR) {
        mode |= Mode::Read;
    }
    if ((info->flags & O_TRUNC) != 0) {
        mode |= Mode::Truncate;
    }
    return openAs(path, info, mode, 0);
}

/// One that is certainly new may be written over several channels.
int createFile(const char* path, mode_t permissions, fuse_file_info* info)
{
    const auto made = Queue::OpenMode(Mode::Write) | Mode::Create;
    const int result = openAs(path, info, made | Mode::Exclusive, permissions);
    return result == -EEXIST ? openAs(path, info, made | Mode::Truncate, permissions) : result;
}

int readFile(const char* /*path*/, char* buffer, std::size_t size, off_t offset,
             fuse_file_info* info)
{
    return fileOf(info).read(static_cast<std::uint64_t>(offset), buffer, size);
}

int writeFile(const char* /*path*/, const char* bytes, std::size_t size, off_t offset,
              fuse_file_info* info)
{
    return fileOf(info).write(static_cast<std::uint64_t>(offset), bytes, size);
}

int flushFile(const char* /*path*/, fuse_file_info* info)
{
    return fileOf(info).flush();
}

int releaseFile(const char* /*path*/, fuse_file_info* info)
{
    const std::unique_ptr<RemoteFile> file(&fileOf(info));
    return 0;
}

fuse_operations operations()
{
    fuse_operations all = {};
    all.getattr = getAttributes;
    all.open = openFile;
    all.create = createFile;
    all.read = readFile;
    all.write = writeFile;
    all.flush = flushFile;
    all.release = releaseFile;
    return all;
}

/// Returns when it is unmounted.
int run(std::vector<std::string> arguments)
{
    require(arguments.size() == loginArguments + 2, "reading the arguments");
    std::string mountPoint = arguments.back();
    std::string root = arguments[loginArguments];
    arguments.resize(loginArguments);
    const auto session = logInWithTarnis(loginFromArguments(arguments));
    const auto system = session->createSFTPFileSystem();
    require(system != nullptr, "opening SFTP");
    const auto queue = system->createQueue();
    Mount mounted{*queue, std::move(root)};
    std::string program = "tarnis_bench_mount";
    std::string oneThread = "-s";
    char* words[] = {program.data(), oneThread.data(), mountPoint.data(), nullptr};
    const fuse_operations all = operations();
    return fuse_main(3, words, &all, &mounted);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "tarnis_bench_mount: " << error.what() << '\n';
        return 1;
    }
}
