#include "handles/SSHSessionOptions.h"
#include "sftp/LibsshRequests.h"
#include "sftp/SFTPCall.h"
#include "sftp/SFTPLookUp.h"
#include "sftp/SFTPModificationTime.h"
#include "sftp/SFTPObstacle.h"
#include "sftp/SFTPQueue.h"
#include "sftp/SFTPReplacingRename.h"

#include <FileSystem/OpenMode.h>
#include <FileSystem/StorageSystemServices.h>
#include <Tarnis/SSHDefaultDeleter.h>
#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHFileSystemSFTPFile.h>

#include <algorithm>
#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::PosixFilePermissionFlag;
using FileSystem::StorageSystemFileOpenModeFlag;

namespace {

constexpr std::uint64_t readPackageSize = 2'621'440;
constexpr std::uint64_t writePackageSize = 262'119;

/// The multiple of `package` that a host is to use where the framework proposes `proposed`.
std::uint64_t wholePackages(std::uint64_t proposed, std::uint64_t package)
{
    const std::uint64_t rounded = proposed - proposed % package;
    return std::min(std::max(rounded, package), package);
}

/// libssh opens a file that is appended to at its end, where this machine's systems read it from
/// its start. To be called under the lock.
void readFromStart(SSHHandleSFTPSessionFile& file)
{
    file.setAppendEnd(sftp_tell64(file.getResource()));
    sftp_seek64(file.getResource(), 0);
}

} // namespace

class SSHFileSystemSFTP::Services final : public FileSystem::StorageSystemServices
{
public:
    explicit Services(const SSHFileSystemSFTP& system)
        : StorageSystemServices(system)
        , system_(system)
    {}

    std::unique_ptr<FileSystem::StorageSystemQueue>
    createQueue(const std::shared_ptr<const std::atomic<bool>>& isAlive,
                const std::function<bool()>& goesOn) const override
    {
        auto handle = system_.validHandle();
        return handle != nullptr ? SFTPQueue::create(std::move(handle), system_, isAlive, goesOn)
                                 : nullptr;
    }

    std::optional<std::vector<FileSystem::StorageSystemFileInfo>>
    readDirectory(const std::string& path) const override
    {
        return system_.readDirectoryFully(path);
    }

    std::optional<std::string> startDirectory() const override { return system_.startDirectory(); }

    bool replace(const std::string& path, const std::string& newPath) const override
    {
        const auto handle = system_.validHandle();
        return handle != nullptr && renameReplacing(*handle, path, newPath);
    }

    bool leadsToNoFile(const std::string& path) const override
    {
        const auto handle = system_.validHandle();
        return handle != nullptr && isSeenToBeNoFile(*handle, path);
    }

    std::optional<FileSystem::StorageSystemAttributes> look(const std::string& path) const override
    {
        return system_.lookAtOwned(path);
    }

private:
    const SSHFileSystemSFTP& system_;
};

SSHFileSystemSFTP::SSHFileSystemSFTP()
    : SSHFileSystemSFTP(nullptr)
{}

SSHFileSystemSFTP::SSHFileSystemSFTP(std::shared_ptr<SSHHandleSFTPSession>&& sftp)
    : sftp_(std::move(sftp))
{
    setServices(std::make_unique<Services>(*this));
}

SSHFileSystemSFTP::~SSHFileSystemSFTP()
{
    try {
        abort();
    } catch (...) {
        // A destructor has nobody to tell; the session frees what is left.
    }
}

void SSHFileSystemSFTP::abort()
{
    // Others may ask for the handle meanwhile; they keep what they got alive. It is let go of in
    // every case, but only once it is invalid: a transfer that finds no handle has no package size.
    auto letGo = [this](const SSHHandleSFTPSession*) {
        std::atomic_store(&sftp_, std::shared_ptr<SSHHandleSFTPSession>());
    };
    const auto sftp = handle();
    const std::unique_ptr<SSHHandleSFTPSession, decltype(letGo)> retired(sftp.get(), letGo);
    if (sftp != nullptr) {
        sftp->deleteMe();
    }
}

std::shared_ptr<SSHHandleSFTPSession> SSHFileSystemSFTP::handle() const
{
    return std::atomic_load(&sftp_);
}

std::shared_ptr<SSHHandleSFTPSession> SSHFileSystemSFTP::validHandle() const
{
    auto sftp = handle();
    if (sftp != nullptr && sftp->isValid() && !sftp->isLost()) {
        return sftp;
    }
    failForLostSftp({});
    return nullptr;
}

unsigned long long SSHFileSystemSFTP::maxReadPackageSize() const
{
    return handle() != nullptr ? readPackageSize : 0;
}

unsigned long long SSHFileSystemSFTP::maxWritePackageSize() const
{
    return handle() != nullptr ? writePackageSize : 0;
}

std::optional<std::string> SSHFileSystemSFTP::startDirectory() const
{
    const auto sftp = validHandle();
    if (sftp == nullptr) {
        return std::nullopt;
    }
    const std::unique_ptr<char, ssh_default_deleter<char>> path(
        callSftp(*sftp, ".", sftp_canonicalize_path, "."));
    return path != nullptr ? std::make_optional<std::string>(path.get()) : std::nullopt;
}

std::string SSHFileSystemSFTP::do_hostName() const
{
    const auto sftp = handle();
    if (sftp == nullptr) {
        return {};
    }
    const auto lock = sftp->getLock();
    SSHHandleSession* const session = sftp->getSession();
    return session != nullptr ? readTextOption(*session, SSH_OPTIONS_HOST) : std::string();
}

FileSystem::StorageSystemType SSHFileSystemSFTP::do_getType() const
{
    return FileSystem::StorageSystemType::SFTP;
}

bool SSHFileSystemSFTP::do_isValid() const
{
    const auto sftp = handle();
    return sftp != nullptr && sftp->isValid() && !sftp->isLost();
}

std::uint64_t SSHFileSystemSFTP::do_recommendedReadBufferSize() const
{
    return wholePackages(FileSystem2::do_recommendedReadBufferSize(), readPackageSize);
}

std::uint64_t SSHFileSystemSFTP::do_recommendedWriteBufferSize() const
{
    return wholePackages(FileSystem2::do_recommendedWriteBufferSize(), writePackageSize);
}

std::string SSHFileSystemSFTP::do_displayPath(const std::string& path) const
{
    return hostName() + ":" + path;
}

std::unique_ptr<FileSystem::StorageSystemFile>
SSHFileSystemSFTP::do_fileOpen(const std::string& path,
                               Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                               Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    const auto sftp = handle();
    if (!isValid() || sftp == nullptr) {
        failForLostSftp(path);
        return nullptr;
    }
    const bool exclusive = mode.has(StorageSystemFileOpenModeFlag::Create) &&
                           mode.has(StorageSystemFileOpenModeFlag::Exclusive);
    if (exclusive && !mayOpenAsNew(*sftp, path)) {
        return nullptr;
    }
    auto file = callSftp(*sftp, path, [&](sftp_session) {
        auto opened = sftp->openFile(path, FileSystem::storageSystemFileOpenModeToPosixMode(mode),
                                     permissions.raw());
        if (opened != nullptr && mode.has(StorageSystemFileOpenModeFlag::Append)) {
            readFromStart(*opened);
        }
        return opened;
    });
    if (file == nullptr) {
        explainOpening(*sftp, path, exclusive);
        return nullptr;
    }
    return std::make_unique<SSHFileSystemSFTPFile>(std::move(file), path, mode, *this);
}

bool SSHFileSystemSFTP::do_fileRemove(const std::string& path) const
{
    const auto sftp = validHandle();
    if (sftp == nullptr || !mayRemoveAsFile(*sftp, path)) {
        return false;
    }
    const bool removed = callSftp(*sftp, path, sftp_unlink, path.c_str()) == SSH_OK;
    if (!removed) {
        explainFileRemoval(*sftp, path);
    }
    return removed;
}

bool SSHFileSystemSFTP::do_fileRenameAs(const std::string& path, const std::string& newPath) const
{
    const auto sftp = validHandle();
    // A link that the server would follow is not renamed at all.
    if (sftp == nullptr || isFollowedByRename(*sftp, path) || !mayRenameTo(*sftp, newPath)) {
        return false;
    }
    const bool renamed =
        callSftp(*sftp, path, renamePlainly, path.c_str(), newPath.c_str()) == SSH_OK;
    if (!renamed) {
        explainRenaming(*sftp, path, newPath);
    }
    return renamed;
}

bool SSHFileSystemSFTP::do_fileSetPermissions(
    const std::string& path, const Utilities::Flags<PosixFilePermissionFlag>& permissions) const
{
    const auto sftp = validHandle();
    if (sftp == nullptr ||
        callSftp(*sftp, path, sftp_chmod, path.c_str(), permissions.raw()) != SSH_OK) {
        return false;
    }
    // Some servers say yes and change nothing. A link was followed, so its target is looked at.
    const SFTPAttributes kept(callSftp(*sftp, path, sftp_stat, path.c_str()));
    return kept != nullptr &&
           (hasPermissions(*kept, permissions) || fail(FailureCode::NotKept, {}, path));
}

bool SSHFileSystemSFTP::do_fileSetModTime(const std::string& path,
                                          const FileSystem::StorageSystemTimePoint time) const
{
    const auto sftp = validHandle();
    return sftp != nullptr && (!path.empty() || fail(FailureCode::BadName)) &&
           setModificationTime(*sftp, path, time);
}

bool SSHFileSystemSFTP::do_directoryCreateAs(
    const std::string& path, bool exclusive,
    Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    const auto sftp = validHandle();
    if (sftp == nullptr) {
        return false;
    }
    if (exclusive && directoryExists(path, true)) {
        return fail(FailureCode::Exists, {}, path);
    }
    const bool made = Tarnis::makeDirectory(*sftp, path, permissions.raw());
    if (!made) {
        const std::string parent = pathParentId(pathRemoveTrailingSlash(path));
        explainMaking(*sftp, path, parent.empty() ? "." : parent);
    }
    return made;
}

bool SSHFileSystemSFTP::do_directoryRemove(const std::string& path) const
{
    const auto sftp = validHandle();
    if (sftp == nullptr || !mayRemoveAsDirectory(*sftp, path)) {
        return false;
    }
    const bool removed = callSftp(*sftp, path, sftp_rmdir, path.c_str()) == SSH_OK;
    if (!removed) {
        explainDirectoryRemoval(sftp, path);
    }
    return removed;
}

} // namespace Tarnis
