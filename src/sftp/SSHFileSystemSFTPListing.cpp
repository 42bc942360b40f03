// The entries of remote directories.

#include "handles/SSHHandleSFTPSession.h"
#include "sftp/SFTPAttributes.h"
#include "sftp/SFTPDirectory.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/NameFilter.h>
#include <Tarnis/SSHFileSystemSFTP.h>

#include <set>

namespace Tarnis {

using FileSystem::StorageSystemDirectoryFilterType;
using FileSystem::StorageSystemDirectoryInfo;
using FileSystem::StorageSystemFileInfo;

namespace {

using Handle = std::shared_ptr<SSHHandleSFTPSession>;

bool isDots(const std::string& name)
{
    return name == "." || name == "..";
}

/// Calls `keep` with the name and the attributes of every entry, in the server's order. False: the
/// directory could not be opened, reading it broke off, or it has more than `limit` entries.
template <class Keep>
bool forEachEntry(const Handle& sftp, const std::string& path, std::uint64_t limit, Keep keep)
{
    if (path.empty()) {
        return FileSystem::fail(FileSystem::FailureCode::BadName);
    }
    SFTPDirectory directory(sftp, path);
    std::uint64_t left = limit;
    while (const SFTPAttributes entry = directory.next()) {
        const std::string name(entry->name);
        if (!isDots(name) && left-- == 0) {
            return FileSystem::fail(FileSystem::FailureCode::TooMany, {}, path);
        }
        keep(name, *entry);
    }
    return directory.isAtEnd();
}

/// The same without the directory itself, its parent, and what the filter does not let through.
template <class Keep>
bool forEachMatch(const Handle& sftp, const std::string& path, std::uint64_t limit,
                  const FileSystem::NameFilter& filter, Keep keep)
{
    return forEachEntry(sftp, path, limit,
                        [&](const std::string& name, const sftp_attributes_struct& entry) {
                            if (!isDots(name) && filter.passes(name)) {
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

/// Adds what is known of the entries that match. False as for forEachEntry().
bool describeEntries(const Handle& sftp, const std::string& path, std::uint64_t limit,
                     const FileSystem::NameFilter& filter, std::vector<StorageSystemFileInfo>& list)
{
    return forEachMatch(sftp, path, limit, filter,
                        [&](const std::string& name, const sftp_attributes_struct& entry) {
                            list.push_back(identify<StorageSystemFileInfo>(path, name));
                            // Here a directory too has the size that the server tells.
                            describe(entry, list.back());
                        });
}

} // namespace

std::vector<StorageSystemDirectoryInfo>
SSHFileSystemSFTP::do_directoryList(const std::string& path, const std::string& filter,
                                    StorageSystemDirectoryFilterType type) const
{
    std::vector<StorageSystemDirectoryInfo> list;
    if (const auto sftp = validHandle()) {
        forEachMatch(sftp, path, listingLimit(), FileSystem::NameFilter(filter, type),
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
        describeEntries(sftp, path, listingLimit(), FileSystem::NameFilter(filter, type), list);
    }
    return list;
}

std::optional<std::vector<StorageSystemFileInfo>>
SSHFileSystemSFTP::readDirectoryFully(const std::string& path) const
{
    std::vector<StorageSystemFileInfo> list;
    const auto sftp = validHandle();
    if (sftp == nullptr ||
        !describeEntries(sftp, path, listingLimit(),
                         {{}, StorageSystemDirectoryFilterType::SearchPattern}, list)) {
        return std::nullopt;
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
    forEachEntry(
        sftp, path, listingLimit(),
        [&names](const std::string& name, const sftp_attributes_struct&) { names.insert(name); });
    names.erase(".");
    names.erase("..");
    const FileSystem::NameFilter nameFilter(filter, type);
    std::vector<std::string> list;
    for (const auto& name : names) {
        if (nameFilter.passes(name)) {
            list.push_back(name);
        }
    }
    return list;
}

} // namespace Tarnis
