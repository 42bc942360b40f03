// Symbolic links: making, reading and removing them.

#include "sftp/SFTPCall.h"
#include "sftp/SFTPLinkMaker.h"
#include "sftp/SFTPLinkTarget.h"
#include "sftp/SFTPObstacle.h"

#include <Tarnis/SSHDefaultDeleter.h>
#include <Tarnis/SSHFileSystemSFTP.h>

namespace Tarnis {

std::optional<std::string> readLinkTarget(SSHHandleSFTPSession& sftp, const std::string& path,
                                          SFTPNotes notes)
{
    const std::unique_ptr<char, ssh_default_deleter<char>> text(
        callSftpNoting(notes, sftp, path, sftp_readlink, path.c_str()));
    return text != nullptr ? std::optional<std::string>(text.get()) : std::nullopt;
}

bool SSHFileSystemSFTP::do_fileSymbolicLinkCreateAs(const std::string& target,
                                                    const std::string& linkPath,
                                                    bool failIfLinkExists) const
{
    if (failIfLinkExists && fileIsSymbolicLink(linkPath)) {
        return FileSystem::fail(FileSystem::FailureCode::Exists, {}, linkPath);
    }
    return replaceByLink(target, linkPath);
}

bool SSHFileSystemSFTP::do_directorySymbolicLinkCreateAs(const std::string& target,
                                                         const std::string& linkPath,
                                                         bool failIfLinkExists) const
{
    if (failIfLinkExists && directoryIsSymbolicLink(linkPath)) {
        return FileSystem::fail(FileSystem::FailureCode::Exists, {}, linkPath);
    }
    return replaceByLink(target, linkPath);
}

/// Removes what stands at the link's path, a directory with everything in it, and makes the link.
bool SSHFileSystemSFTP::replaceByLink(const std::string& target, const std::string& linkPath) const
{
    const auto sftp = validHandle();
    const auto place = linkPlace(target, linkPath);
    if (sftp == nullptr || !place) {
        return false;
    }
    if (directoryExists(*place, false) && !do_directoryRemove(*place, true)) {
        return false;
    }
    if (fileExists(*place, true) && !do_fileRemove(*place)) {
        return false;
    }
    return SFTPLinkMaker(*sftp).make(target, *place);
}

std::optional<std::string>
SSHFileSystemSFTP::do_fileSymbolicLinkTarget(const std::string& path) const
{
    const auto sftp = validHandle();
    auto target = sftp != nullptr ? readLinkTarget(*sftp, path) : std::nullopt;
    if (sftp != nullptr && !target) {
        explainReadingLink(*sftp, path);
    }
    return target;
}

std::optional<std::string>
SSHFileSystemSFTP::do_directorySymbolicLinkTarget(const std::string& path) const
{
    return do_fileSymbolicLinkTarget(path);
}

bool SSHFileSystemSFTP::do_fileSymbolicLinkRemove(const std::string& path) const
{
    return do_fileRemove(path);
}

bool SSHFileSystemSFTP::do_directorySymbolicLinkRemove(const std::string& path) const
{
    return fileSymbolicLinkRemove(path);
}

} // namespace Tarnis
