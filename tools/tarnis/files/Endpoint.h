#pragma once

#include "Failure.h"
#include "files/Paths.h"
#include "login/ConnectionOptions.h"
#include "login/Target.h"

#include <FileSystem/FileSystem2.h>
#include <FileSystem/LocalFileSystem.h>
#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHSession.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace TarnisTool {

struct LoginSecrets;

/// A file system that a command works on, together with the way in which it explains failures to
/// the user. The operations here throw Failure with the path, the host and the reason.
class Endpoint
{
public:
    Endpoint() = default;
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;
    virtual ~Endpoint() = default;

    virtual const FileSystem::FileSystem2& system() const = 0;

    /// The path as messages name it.
    virtual std::string display(const std::string& path) const = 0;

    /// Throws a Failure when the endpoint is gone altogether, as after a lost connection.
    virtual void requireAlive() {}

    /// Whether it is not gone.
    virtual bool isAlive() { return true; }

    /// Throws the Failure for an endpoint that is gone.
    [[noreturn]] virtual void throwLost(const FileSystem::Failure& why);

    /// Why nothing can be written to the path, found out by looking. Empty where nothing speaks
    /// against it.
    virtual std::string writingProblem(const std::string& path);

    /// Whether a link is known to lead to a pipe, a socket or a device. The text of one like
    /// "/dev/stdin" need not name anything.
    virtual bool leadsToNoFile(const std::string& path) const;

    /// Whether what passes for a directory is one: over SFTP a block device has the type of a
    /// directory, and is only known from one by what is in it.
    bool isDirectoryItself(const std::string& path) const;

    /// What stands at the path, a link itself included.
    FileSystem::StorageSystemFileInfo find(const std::string& path);

    /// The entries of a directory, in ascending order of the bytes of their names. Directories have
    /// no size, as where they are looked at by themselves.
    std::vector<FileSystem::StorageSystemFileInfo> list(const std::string& directory);

    /// What keeps something new from the path, found out by looking; empty where nothing does, and
    /// where the failure tells by itself.
    std::string obstacleAt(const std::string& path, const FileSystem::Failure& why) const;

    /// All twelve permission bits of what stands at the path, a link itself included; empty where
    /// that cannot be told.
    virtual std::optional<std::uint32_t> mode(const std::string& path) const = 0;

    /// A Failure "<what> <path>: <reason>" for an operation that failed. Throws the one for an
    /// endpoint that is gone where that is why.
    /// \param why  what FileSystem::Failure::last() said right after it.
    /// \param hint what the command knows itself; stands before the system's own words.
    Failure failureBecause(const std::string& what, const std::string& path,
                           const FileSystem::Failure& why, const std::string& hint = {});

    /// Throws failureBecause().
    [[noreturn]] void failBecause(const std::string& what, const std::string& path,
                                  const FileSystem::Failure& why, const std::string& hint = {});

    /// A Failure "<what> <path>: <reason>" for something that is not even tried.
    Failure refusal(const std::string& what, const std::string& path,
                    const std::string& reason) const;

    /// Throws refusal(), unless the endpoint is gone.
    [[noreturn]] void refuse(const std::string& what, const std::string& path,
                             const std::string& reason);
};

/// The files of this machine.
class LocalEndpoint : public Endpoint
{
public:
    const FileSystem::FileSystem2& system() const override { return system_; }

    std::string display(const std::string& path) const override { return textOf(path); }

    bool leadsToNoFile(const std::string& path) const override;

    std::optional<std::uint32_t> mode(const std::string& path) const override
    {
        return system_.fileMode(path);
    }

private:
    FileSystem::LocalFileSystem system_;
};

/// The files of a server.
class RemoteEndpoint : public Endpoint
{
public:
    /// Connects, logs in and starts the file transfer. Throws Failure.
    RemoteEndpoint(Target target, const LoginOptions& options);

    /// The same, with secrets that were fetched already.
    RemoteEndpoint(Target target, const LoginOptions& options, const LoginSecrets& secrets);

    const FileSystem::FileSystem2& system() const override { return *system_; }

    std::string display(const std::string& path) const override;

    std::optional<std::uint32_t> mode(const std::string& path) const override
    {
        return system_->fileMode(path);
    }

    bool isAlive() override;
    void requireAlive() override;
    [[noreturn]] void throwLost(const FileSystem::Failure& why) override;

    Tarnis::SSHSession& session() noexcept { return session_; }

private:
    Target target_;
    Tarnis::SSHSession session_;
    std::unique_ptr<Tarnis::SSHFileSystemSFTP> system_;
};

/// Starts file transfer on a session that is logged in. Throws Failure.
std::unique_ptr<Tarnis::SSHFileSystemSFTP> startFileTransfer(Tarnis::SSHSession& session,
                                                             const Target& target);

} // namespace TarnisTool
