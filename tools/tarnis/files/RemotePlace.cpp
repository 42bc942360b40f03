#include "files/RemotePlace.h"

#include "Failure.h"
#include "files/EntryNames.h"
#include "files/RemotePath.h"
#include "login/Connecting.h"
#include "login/Login.h"

#include <utility>

namespace TarnisTool {

namespace {

/// The server may have ended the file transfer and kept the connection: only a question tells. One
/// of the two is answered by any server that is there.
bool isAnswering(const FileSystem::FileSystem2& system)
{
    return system.isValid() && (system.absolutePath(".") || system.fileInfo("/"));
}

} // namespace

std::unique_ptr<Tarnis::SSHFileSystemSFTP> startFileTransfer(Tarnis::SSHSession& session,
                                                             const Target& target)
{
    auto system = session.createSFTPFileSystem();
    if (system != nullptr) {
        return system;
    }
    const auto why = FileSystem::Failure::last();
    if (!session.isConnected()) {
        throwConnectionLost(target, "cannot start file transfer with", why);
    }
    // The server was asked after the log-in, and said no to another channel.
    const bool isSessionRefused = why.code() == FileSystem::FailureCode::Denied;
    throw Failure(isSessionRefused ? FailureKind::SessionRefused : FailureKind::FileTransferRefused,
                  "cannot start file transfer with", target.display(),
                  joinReasons(isSessionRefused ? "the server opens no session for it"
                                               : "the server does not offer SFTP",
                              why.text().empty() ? why.cause() : why.text()));
}

RemotePlace::RemotePlace(Target target, const LoginOptions& options)
    : RemotePlace(std::move(target), options, LoginSecrets::fetch(options))
{}

RemotePlace::RemotePlace(Target target, const LoginOptions& options, const LoginSecrets& secrets)
    : target_(std::move(target))
{
    openSession(session_, target_, options, secrets);
    system_ = startFileTransfer(session_, target_);
}

std::string RemotePlace::display(const std::string& path) const
{
    return displayRemote(target_, textOf(path));
}

bool RemotePlace::isAlive()
{
    return isAnswering(*system_);
}

void RemotePlace::requireAlive()
{
    if (!isAnswering(*system_)) {
        throwLost(FileSystem::Failure::last());
    }
}

void RemotePlace::throwLost(const FileSystem::Failure& why)
{
    if (session_.isConnected()) {
        throw Failure(FailureKind::ConnectionLost, "lost the connection to", target_.display(),
                      "the server ended the file transfer");
    }
    throwConnectionLost(target_, "lost the connection to", why);
}

} // namespace TarnisTool
