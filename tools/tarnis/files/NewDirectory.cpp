#include "files/NewDirectory.h"

namespace TarnisTool {

std::optional<Utilities::Flags<FileSystem::PosixFilePermissionFlag>>
makeNewDirectory(const FileSystem::FileSystem2& system, const std::string& path,
                 Utilities::Flags<FileSystem::PosixFilePermissionFlag> permissions)
{
    if (!system.directoryCreateAs(path, true, permissions)) {
        return std::nullopt;
    }
    const auto made = system.directoryInfo(path);
    if (!made) {
        return permissions;
    }
    const auto narrowed = made->permissions & permissions;
    if (narrowed != made->permissions) {
        // As far as the system has permissions at all.
        static_cast<void>(system.directorySetPermissions(path, narrowed));
    }
    return narrowed;
}

} // namespace TarnisTool
