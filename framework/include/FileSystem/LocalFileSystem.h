#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/FileSystem2.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

/// The file system of this machine, as the process sees it. A relative path starts at the process's
/// current directory. Holds no resources and is always valid; files that it has opened are invalid
/// once it is gone.
///
/// Renaming and moving never replace what stands at the new path. Setting the permissions of a
/// directory leaves its set-ID and sticky bits as they are; directorySetPermissions() with 01000
/// gives it the sticky bit.
///
/// Threads: any thread may call any operation; calls do not wait for each other.
class FILESYSTEM_EXPORT LocalFileSystem final : public FileSystem2
{
public:
    LocalFileSystem();
    ~LocalFileSystem() override;

    /// The system's reason for the last operation of the calling thread that failed to open, read,
    /// write, list, make, change or remove something, on any object of this class or a file opened
    /// by one; empty when none did. A question that is answered with no is no failure. Does not
    /// block.
    static std::string getLastError();

    /// Makes getLastError() empty for the calling thread.
    static void clearLastError() noexcept;

    /// All twelve permission bits of what stands at the path, of a symbolic link its own: set-ID
    /// and sticky bits (07000) are no part of StorageSystemFileInfo. Empty: a failure.
    std::optional<std::uint32_t> fileMode(const std::string& path) const;

protected:
    std::string do_hostName() const override;
    StorageSystemType do_getType() const override;
    bool do_isValid() const override;
    std::unique_ptr<StorageSystemFile>
    do_fileOpen(const std::string& path, Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                Utilities::Flags<PosixFilePermissionFlag> permissions) const override;
    std::optional<StorageSystemFileInfo> do_fileInfo(const std::string& path) const override;
    std::optional<StorageSystemStorageInfo>
    do_fileStorageInfo(const std::string& path) const override;
    bool do_fileRemove(const std::string& path) const override;
    bool do_fileSetPermissions(
        const std::string& path,
        const Utilities::Flags<PosixFilePermissionFlag>& permissions) const override;
    bool do_fileSetModTime(const std::string& path, StorageSystemTimePoint time) const override;
    std::optional<std::string> do_fileSymbolicLinkTarget(const std::string& path) const override;
    bool do_fileSymbolicLinkRemove(const std::string& path) const override;
    std::vector<StorageSystemDirectoryInfo>
    do_directoryList(const std::string& path, const std::string& filter,
                     StorageSystemDirectoryFilterType type) const override;
    std::vector<StorageSystemFileInfo>
    do_directoryFileInfoList(const std::string& path, const std::string& filter,
                             StorageSystemDirectoryFilterType type) const override;
    std::vector<std::string>
    do_directoryListFileNames(const std::string& path, const std::string& filter,
                              StorageSystemDirectoryFilterType type) const override;
    bool do_directorySetPermissions(
        const std::string& path,
        const Utilities::Flags<PosixFilePermissionFlag>& permissions) const override;
    std::optional<std::string>
    do_directorySymbolicLinkTarget(const std::string& path) const override;
    bool do_directorySymbolicLinkRemove(const std::string& path) const override;
    bool do_fileRenameAs(const std::string& path, const std::string& newPath) const override;
    bool do_fileSymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                     bool failIfLinkExists) const override;
    bool do_directoryCreateAs(const std::string& path, bool exclusive,
                              Utilities::Flags<PosixFilePermissionFlag> permissions) const override;
    bool do_directoryRemove(const std::string& path) const override;
    bool do_directoryRemove(const std::string& path, bool recursive) const override;
    bool do_directorySymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                          bool failIfLinkExists) const override;

private:
    class Services;

    bool replaceByLink(const std::string& target, const std::string& linkPath) const;
};

} // namespace FileSystem
