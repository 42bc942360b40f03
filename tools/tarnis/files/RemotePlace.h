#pragma once

#include "files/Place.h"
#include "login/ConnectionOptions.h"
#include "login/Target.h"

#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHSession.h>

#include <memory>
#include <string>

namespace TarnisTool {

struct LoginSecrets;

/// The files of a server.
class RemotePlace : public Place
{
public:
    /// Connects, logs in and starts the file transfer. Throws Failure.
    RemotePlace(Target target, const LoginOptions& options);

    /// The same, with secrets that were fetched already.
    RemotePlace(Target target, const LoginOptions& options, const LoginSecrets& secrets);

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
