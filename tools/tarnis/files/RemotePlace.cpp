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
    const std::string before = forgetLastError(session);
    auto system = session.createSFTPFileSystem();
    if (system != nullptr) {
        return system;
    }
    const std::string reason = session.getLastError();
    if (!session.isConnected()) {
        throwConnectionLost(session, target, "cannot start file transfer with");
    }
    throw Failure(FailureKind::FileTransferRefused, "cannot start file transfer with",
                  target.display(),
                  joinReasons("the server does not offer SFTP", reason == before ? "" : reason));
}

RemotePlace::RemotePlace(Target target, const LoginOptions& options)
    : target_(std::move(target))
{
    LoginSecrets secrets = LoginSecrets::fetch(options);
    openSession(session_, target_, options, std::move(secrets));
    system_ = startFileTransfer(session_, target_);
}

std::string RemotePlace::display(const std::string& path) const
{
    return displayRemote(target_, textOf(path));
}

void RemotePlace::forgetFailures()
{
    forgotten_ = forgetLastError(session_);
}

std::string RemotePlace::lastReason()
{
    const std::string reason = session_.getLastError();
    return reason == forgotten_ ? std::string() : reason;
}

bool RemotePlace::isAlive()
{
    return session_.isConnected() && isAnswering(*system_);
}

void RemotePlace::requireAlive()
{
    if (!session_.isConnected()) {
        throwConnectionLost(session_, target_, "lost the connection to");
    }
    if (!isAnswering(*system_)) {
        throw Failure(FailureKind::ConnectionLost, "lost the connection to", target_.display(),
                      "the server ended the file transfer");
    }
}

} // namespace TarnisTool
