#include "GoneFileSystem.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystemFile.h>

namespace FileSystem {

namespace {

bool refuse()
{
    return fail(FailureCode::ConnectionLost, "the storage system is gone");
}

template <class Result>
Result nothing()
{
    refuse();
    return {};
}

class GoneFileSystem final : public FileSystem2
{
private:
    using Path = const std::string&;
    using Permissions = Utilities::Flags<PosixFilePermissionFlag>;

    std::string do_hostName() const override { return {}; }

    StorageSystemType do_getType() const override { return StorageSystemType::None; }

    bool do_isValid() const override { return false; }

    std::unique_ptr<StorageSystemFile>
    do_fileOpen(Path /*path*/, Utilities::Flags<StorageSystemFileOpenModeFlag> /*mode*/,
                Permissions /*permissions*/) const override
    {
        return nothing<std::unique_ptr<StorageSystemFile>>();
    }

    std::optional<StorageSystemFileInfo> do_fileInfo(Path /*path*/) const override
    {
        return nothing<std::optional<StorageSystemFileInfo>>();
    }

    std::optional<StorageSystemStorageInfo> do_fileStorageInfo(Path /*path*/) const override
    {
        return nothing<std::optional<StorageSystemStorageInfo>>();
    }

    bool do_fileRemove(Path /*path*/) const override { return refuse(); }

    bool do_fileSetPermissions(Path /*path*/, const Permissions& /*permissions*/) const override
    {
        return refuse();
    }

    bool do_fileSetModTime(Path /*path*/, const StorageSystemTimePoint /*time*/) const override
    {
        return refuse();
    }

    std::optional<std::string> do_fileSymbolicLinkTarget(Path /*path*/) const override
    {
        return nothing<std::optional<std::string>>();
    }

    bool do_fileSymbolicLinkRemove(Path /*path*/) const override { return refuse(); }

    std::vector<StorageSystemDirectoryInfo>
    do_directoryList(Path /*path*/, Path /*filter*/,
                     StorageSystemDirectoryFilterType /*type*/) const override
    {
        return nothing<std::vector<StorageSystemDirectoryInfo>>();
    }

    std::vector<StorageSystemFileInfo>
    do_directoryFileInfoList(Path /*path*/, Path /*filter*/,
                             StorageSystemDirectoryFilterType /*type*/) const override
    {
        return nothing<std::vector<StorageSystemFileInfo>>();
    }

    std::vector<std::string>
    do_directoryListFileNames(Path /*path*/, Path /*filter*/,
                              StorageSystemDirectoryFilterType /*type*/) const override
    {
        return nothing<std::vector<std::string>>();
    }

    std::optional<std::string> do_directorySymbolicLinkTarget(Path /*path*/) const override
    {
        return nothing<std::optional<std::string>>();
    }

    bool do_directorySymbolicLinkRemove(Path /*path*/) const override { return refuse(); }

    bool do_fileRenameAs(Path /*path*/, Path /*newPath*/) const override { return refuse(); }

    bool do_fileSymbolicLinkCreateAs(Path /*target*/, Path /*linkPath*/,
                                     bool /*failIfLinkExists*/) const override
    {
        return refuse();
    }

    bool do_directoryCreateAs(Path /*path*/, bool /*exclusive*/,
                              Permissions /*permissions*/) const override
    {
        return refuse();
    }

    using FileSystem2::do_directoryRemove;

    bool do_directoryRemove(Path /*path*/) const override { return refuse(); }

    bool do_directorySymbolicLinkCreateAs(Path /*target*/, Path /*linkPath*/,
                                          bool /*failIfLinkExists*/) const override
    {
        return refuse();
    }
};

} // namespace

const FileSystem2& goneFileSystem()
{
    // Never destroyed: files in static storage may ask for it when everything else has gone.
    static const FileSystem2* const gone = new GoneFileSystem;
    return *gone;
}

} // namespace FileSystem
