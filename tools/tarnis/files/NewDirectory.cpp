#include "files/NewDirectory.h"

namespace TarnisTool {

std::optional<NewDirectory>
makeNewDirectory(const FileSystem::FileSystem2& system, const std::string& path,
                 Utilities::Flags<FileSystem::PosixFilePermissionFlag> permissions)
{
    if (!system.directoryCreateAs(path, true, permissions)) {
        return std::nullopt;
    }
    const auto made = system.directoryInfo(path);
    if (!made) {
        return NewDirectory{permissions};
    }
    const auto narrowed = made->permissions & permissions;
    const auto whileFilled = narrowed | (permissions & allOfTheOwner);
    // As far as the system has permissions at all.
    const bool isSet =
        whileFilled != made->permissions && system.directorySetPermissions(path, whileFilled);
    return NewDirectory{narrowed, isSet && whileFilled != narrowed};
}

} // namespace TarnisTool
