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

/// The server may have ended the file transfer and kept the connection, so it is asked. Every
/// server that still transfers files answers one of the two questions.
bool isAnswering(const FileSystem::FileSystem2& system)
{
    return system.isValid() && (system.absolutePath(".") || system.fileInfo("/"));
}

} // namespace

bool Endpoint::leadsToNoFile(const std::string& path) const
{
    static_cast<void>(path);
    return false;
}

// A directory has a ".". One that may not be entered counts as a directory.
bool Endpoint::isDirectoryItself(const std::string& path) const
{
    using FileSystem::FailureCode;
    if (system().getType() == FileSystem::StorageSystemType::Local ||
        system().fileType(system().pathChildId(path, {"."}))) {
        return true;
    }
    const auto code = FileSystem::Failure::last().code();
    return code != FailureCode::NotFound && code != FailureCode::NotDirectory;
}

std::string Endpoint::writingProblem(const std::string& path)
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

std::string Endpoint::obstacleAt(const std::string& path, const FileSystem::Failure& why) const
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

FileSystem::StorageSystemFileInfo Endpoint::find(const std::string& path)
{
    auto info = system().fileInfo(path);
    if (!info) {
        failBecause("cannot find", path, FileSystem::Failure::last());
    }
    return std::move(*info);
}

std::vector<FileSystem::StorageSystemFileInfo> Endpoint::list(const std::string& directory)
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

void Endpoint::throwLost(const FileSystem::Failure& why)
{
    throw Failure(FailureKind::ConnectionLost, "lost", "the files", reasonOf(why));
}

Failure Endpoint::failureBecause(const std::string& what, const std::string& path,
                                 const FileSystem::Failure& why, const std::string& hint)
{
    if (isLoss(why)) {
        throwLost(why);
    }
    const bool isNothingThere = why.code() == FileSystem::FailureCode::NotFound;
    return {isNothingThere ? FailureKind::NothingThere : FailureKind::FileProblem, what,
            display(path), hint.empty() ? reasonOf(why) : joinReasons(hint, why.text())};
}

void Endpoint::failBecause(const std::string& what, const std::string& path,
                           const FileSystem::Failure& why, const std::string& hint)
{
    throw failureBecause(what, path, why, hint);
}

Failure Endpoint::refusal(const std::string& what, const std::string& path,
                          const std::string& reason) const
{
    return {FailureKind::FileProblem, what, display(path), reason};
}

void Endpoint::refuse(const std::string& what, const std::string& path, const std::string& reason)
{
    // A lost connection makes files look absent.
    requireAlive();
    throw refusal(what, path, reason);
}

bool LocalEndpoint::leadsToNoFile(const std::string& path) const
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
    // After the log-in, Denied means that the server refused to open another channel.
    const bool isSessionRefused = why.code() == FileSystem::FailureCode::Denied;
    throw Failure(isSessionRefused ? FailureKind::SessionRefused : FailureKind::FileTransferRefused,
                  "cannot start file transfer with", target.display(),
                  joinReasons(isSessionRefused ? "the server opens no session for it"
                                               : "the server does not offer SFTP",
                              why.text().empty() ? why.cause() : why.text()));
}

RemoteEndpoint::RemoteEndpoint(Target target, const LoginOptions& options)
    : RemoteEndpoint(std::move(target), options, LoginSecrets::fetch(options))
{}

RemoteEndpoint::RemoteEndpoint(Target target, const LoginOptions& options,
                               const LoginSecrets& secrets)
    : target_(std::move(target))
{
    openSession(session_, target_, options, secrets);
    system_ = startFileTransfer(session_, target_);
}

std::string RemoteEndpoint::display(const std::string& path) const
{
    return displayRemote(target_, textOf(path));
}

bool RemoteEndpoint::isAlive()
{
    return isAnswering(*system_);
}

void RemoteEndpoint::requireAlive()
{
    if (!isAnswering(*system_)) {
        throwLost(FileSystem::Failure::last());
    }
}

void RemoteEndpoint::throwLost(const FileSystem::Failure& why)
{
    if (session_.isConnected()) {
        throw Failure(FailureKind::ConnectionLost, "lost the connection to", target_.display(),
                      "the server ended the file transfer");
    }
    throwConnectionLost(target_, "lost the connection to", why);
}

} // namespace TarnisTool
