// What a path is, and the room on the volume that holds it.

#include "sftp/SFTPCall.h"
#include "sftp/SFTPLookUp.h"

#include <FileSystem/StorageSystemServices.h>
#include <Tarnis/SSHFileSystemSFTP.h>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::StorageSystemFileInfo;
using FileSystem::StorageSystemStorageInfo;

namespace {

using SFTPVolume = std::unique_ptr<sftp_statvfs_struct, ssh_default_deleter<sftp_statvfs_struct>>;

/// What stands at the path itself, or else what a link there leads to.
SFTPAttributes anyAttributes(SSHHandleSFTPSession& sftp, const std::string& path)
{
    SFTPAttributes attributes = lookUp(sftp, path);
    if (attributes == nullptr) {
        attributes.reset(callSftp(sftp, path, sftp_stat, path.c_str()));
    }
    return attributes;
}

/// Some servers end the SFTP session at an extension that they did not offer.
bool offersVolumes(sftp_session sftp)
{
    return sftp_extension_supported(sftp, "statvfs@openssh.com", "2") != 0;
}

StorageSystemStorageInfo figuresOf(const sftp_statvfs_struct& volume) noexcept
{
    return {volume.f_bfree * volume.f_frsize, volume.f_bavail * volume.f_frsize,
            volume.f_blocks * volume.f_frsize};
}

StorageSystemFileInfo infoOf(const FileSystem::FileSystem2& system, const std::string& path,
                             const sftp_attributes_struct& attributes)
{
    StorageSystemFileInfo info;
    info.name = system.pathFileName(path);
    info.fileId = path;
    info.parentDirectoryId = system.pathParentId(path);
    describe(attributes, info);
    if (hasDirectoryBit(attributes.permissions)) {
        info.size = 0;
    }
    return info;
}

} // namespace

std::optional<StorageSystemFileInfo> SSHFileSystemSFTP::do_fileInfo(const std::string& path) const
{
    const auto sftp = validHandle();
    if (sftp == nullptr) {
        return std::nullopt;
    }
    if (path.empty()) {
        fail(FailureCode::BadName);
        return std::nullopt;
    }
    const SFTPAttributes attributes = lookUp(*sftp, path);
    return attributes != nullptr ? std::make_optional(infoOf(*this, path, *attributes))
                                 : std::nullopt;
}

std::optional<FileSystem::StorageSystemAttributes>
SSHFileSystemSFTP::lookAtOwned(const std::string& path) const
{
    const auto sftp = validHandle();
    const SFTPAttributes attributes = sftp != nullptr ? lookUp(*sftp, path) : nullptr;
    if (attributes == nullptr) {
        return std::nullopt;
    }
    auto told = FileSystem::StorageSystemServices::attributesOf(infoOf(*this, path, *attributes));
    if ((attributes->flags & SSH_FILEXFER_ATTR_UIDGID) != 0) {
        told.owner = FileSystem::StorageSystemOwner{attributes->uid, attributes->gid};
    }
    if ((attributes->flags & SSH_FILEXFER_ATTR_PERMISSIONS) != 0) {
        told.specialBits = attributes->permissions & stickyBit;
    }
    return told;
}

std::optional<std::uint32_t> SSHFileSystemSFTP::fileMode(const std::string& path) const
{
    constexpr std::uint32_t modeBits = 07777;
    FileSystem::FailureScope scope("fileMode", path);
    const auto sftp = validHandle();
    if (sftp == nullptr || (path.empty() && !fail(FailureCode::BadName))) {
        return scope.result(std::optional<std::uint32_t>());
    }
    const SFTPAttributes attributes = lookUp(*sftp, path);
    const bool isTold =
        attributes != nullptr && ((attributes->flags & SSH_FILEXFER_ATTR_PERMISSIONS) != 0 ||
                                  fail(FailureCode::Unsupported));
    return scope.result(isTold ? std::optional(attributes->permissions & modeBits) : std::nullopt);
}

std::optional<StorageSystemStorageInfo>
SSHFileSystemSFTP::do_fileStorageInfo(const std::string& path) const
{
    const auto sftp = validHandle();
    if (sftp == nullptr) {
        return std::nullopt;
    }
    if (path.empty()) {
        fail(FailureCode::BadName);
        return std::nullopt;
    }
    std::string existing = path;
    SFTPAttributes attributes = anyAttributes(*sftp, existing);
    while (attributes == nullptr) {
        existing = pathParentId(existing);
        if (existing.empty()) {
            return std::nullopt;
        }
        attributes = anyAttributes(*sftp, existing);
    }
    const std::string directory =
        hasDirectoryBit(attributes->permissions) ? existing : pathParentId(path);
    if (directory.empty()) {
        return std::nullopt;
    }
    const auto offers = callUnlessLost(*sftp, offersVolumes);
    if (!offers.value_or(false)) {
        offers ? fail(FailureCode::Unsupported, {}, directory) : failForLostSftp(directory);
        return std::nullopt;
    }
    const SFTPVolume volume(callSftp(*sftp, directory, sftp_statvfs, directory.c_str()));
    return volume != nullptr ? std::optional(figuresOf(*volume)) : std::nullopt;
}

} // namespace Tarnis
