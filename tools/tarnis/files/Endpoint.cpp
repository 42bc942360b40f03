#include "files/Endpoint.h"

#include "Failure.h"
#include "files/Paths.h"
#include "login/Connecting.h"
#include "login/Login.h"

#include <algorithm>
#include <utility>

#include <sys/stat.h>

namespace TarnisTool {

namespace {

/// The server may have ended the file transfer and kept the connection: only a question tells. One
/// of the two is answered by any server that is there.
bool isAnswering(const FileSystem::FileSystem2& system)
{
    return system.isValid() && (system.absolutePath(".") || system.fileInfo("/"));
}

} // namespace

bool Place::leadsToNoFile(const std::string& path) const
{
    static_cast<void>(path);
    return false;
}

// A directory holds itself. What may not be entered passes for one.
bool Place::isDirectoryItself(const std::string& path) const
{
    using FileSystem::FailureCode;
    if (system().getType() == FileSystem::StorageSystemType::Local ||
        system().fileType(system().pathChildId(path, {"."}))) {
        return true;
    }
    const auto code = FileSystem::Failure::last().code();
    return code != FailureCode::NotFound && code != FailureCode::NotDirectory;
}

std::string Place::writingProblem(const std::string& path)
{
    if (system().directoryExists(path, false)) {
        return "a directory stands there";
    }
    const std::string parent = system().pathParentId(path);
    if (!parent.empty() && !system().directoryExists(parent)) {
        return "its directory does not exist";
    }
    return {};
}

std::string Place::obstacleAt(const std::string& path, const FileSystem::Failure& why) const
{
    const bool isUnexplained = why.code() == FileSystem::FailureCode::Other ||
                               why.code() == FileSystem::FailureCode::NotFound;
    if (!isUnexplained) {
        return {};
    }
    if (system().fileInfo(path)) {
        return "something is there already";
    }
    const std::string parent = system().pathParentId(path);
    const bool isOrphan = !parent.empty() && !system().directoryExists(parent);
    return isOrphan ? "its directory does not exist" : "";
}

FileSystem::StorageSystemFileInfo Place::find(const std::string& path)
{
    auto info = system().fileInfo(path);
    if (!info) {
        failBecause("cannot find", path, FileSystem::Failure::last());
    }
    return std::move(*info);
}

std::vector<FileSystem::StorageSystemFileInfo> Place::list(const std::string& directory)
{
    auto entries = system().directoryReadFully(directory);
    if (!entries) {
        failBecause("cannot list", directory, FileSystem::Failure::last());
    }
    for (auto& entry : *entries) {
        entry.size = isDirectory(entry.type) ? 0 : entry.size;
    }
    std::sort(entries->begin(), entries->end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    return *std::move(entries);
}

void Place::throwLost(const FileSystem::Failure& why)
{
    throw Failure(FailureKind::ConnectionLost, "lost", "the files", reasonOf(why));
}

Failure Place::failureBecause(const std::string& what, const std::string& path,
                              const FileSystem::Failure& why, const std::string& hint)
{
    if (isLoss(why)) {
        throwLost(why);
    }
    const bool isNothingThere = why.code() == FileSystem::FailureCode::NotFound;
    return Failure(isNothingThere ? FailureKind::NothingThere : FailureKind::FileProblem, what,
                   display(path), hint.empty() ? reasonOf(why) : joinReasons(hint, why.text()));
}

void Place::failBecause(const std::string& what, const std::string& path,
                        const FileSystem::Failure& why, const std::string& hint)
{
    throw failureBecause(what, path, why, hint);
}

Failure Place::refusal(const std::string& what, const std::string& path,
                       const std::string& reason) const
{
    return Failure(FailureKind::FileProblem, what, display(path), reason);
}

void Place::refuse(const std::string& what, const std::string& path, const std::string& reason)
{
    // What looks absent may be out of reach.
    requireAlive();
    throw refusal(what, path, reason);
}

bool LocalPlace::leadsToNoFile(const std::string& path) const
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) &&
           !S_ISDIR(status.st_mode);
}

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
