// The entries of remote directories.

#include "handles/SSHHandleSFTPSession.h"
#include "sftp/SFTPAttributes.h"
#include "sftp/SFTPDirectory.h"
#include "sftp/SFTPNameFilter.h"

#include <Tarnis/SSHFileSystemSFTP.h>

#include <set>

namespace Tarnis {

using FileSystem::StorageSystemDirectoryFilterType;
using FileSystem::StorageSystemDirectoryInfo;
using FileSystem::StorageSystemFileInfo;

namespace {

using Handle = std::shared_ptr<SSHHandleSFTPSession>;

/// Calls `keep` with the name and the attributes of every entry, in the server's order. The end of
/// the directory and a failure in the middle look alike.
template <class Keep>
void forEachEntry(const Handle& sftp, const std::string& path, Keep keep)
{
    if (path.empty()) {
        return;
    }
    SFTPDirectory directory(sftp, path);
    while (const SFTPAttributes entry = directory.next()) {
        keep(std::string(entry->name), *entry);
    }
}

/// The same without the directory itself, its parent, and what the filter does not let through.
template <class Keep>
void forEachMatch(const Handle& sftp, const std::string& path, const SFTPNameFilter& filter,
                  Keep keep)
{
    forEachEntry(sftp, path, [&](const std::string& name, const sftp_attributes_struct& entry) {
        if (name != ".." && name != "." && filter.matches(name)) {
            keep(name, entry);
        }
    });
}

/// What the two kinds of records have in common.
template <class Info>
Info identify(const std::string& directory, const std::string& name)
{
    Info info;
    info.fileId = directory + "/" + name;
    info.parentDirectoryId = directory;
    info.name = name;
    return info;
}

} // namespace

std::vector<StorageSystemDirectoryInfo>
SSHFileSystemSFTP::do_directoryList(const std::string& path, const std::string& filter,
                                    StorageSystemDirectoryFilterType type) const
{
    std::vector<StorageSystemDirectoryInfo> list;
    if (const auto sftp = validHandle()) {
        forEachMatch(sftp, path, SFTPNameFilter(filter, type),
                     [&](const std::string& name, const sftp_attributes_struct& entry) {
                         list.push_back(identify<StorageSystemDirectoryInfo>(path, name));
                         list.back().type = fileTypeOf(entry.permissions);
                     });
    }
    return list;
}

std::vector<StorageSystemFileInfo>
SSHFileSystemSFTP::do_directoryFileInfoList(const std::string& path, const std::string& filter,
                                            StorageSystemDirectoryFilterType type) const
{
    std::vector<StorageSystemFileInfo> list;
    if (const auto sftp = validHandle()) {
        forEachMatch(sftp, path, SFTPNameFilter(filter, type),
                     [&](const std::string& name, const sftp_attributes_struct& entry) {
                         list.push_back(identify<StorageSystemFileInfo>(path, name));
                         // Here a directory too has the size that the server tells.
                         describe(entry, list.back());
                     });
    }
    return list;
}

std::vector<std::string>
SSHFileSystemSFTP::do_directoryListFileNames(const std::string& path, const std::string& filter,
                                             StorageSystemDirectoryFilterType type) const
{
    const auto sftp = validHandle();
    if (sftp == nullptr) {
        return {};
    }
    // Ordered by the values of the bytes, whatever the sign of char.
    std::set<std::string> names;
    forEachEntry(sftp, path, [&names](const std::string& name, const sftp_attributes_struct&) {
        names.insert(name);
    });
    names.erase(".");
    names.erase("..");
    const SFTPNameFilter nameFilter(filter, type);
    std::vector<std::string> list;
    for (const auto& name : names) {
        if (nameFilter.matches(name)) {
            list.push_back(name);
        }
    }
    return list;
}

} // namespace Tarnis
