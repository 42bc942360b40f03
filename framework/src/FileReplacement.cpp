#include "FileReplacement.h"

#include "HiddenName.h"
#include "PathText.h"

#include <FileSystem/FileSystem2.h>

namespace FileSystem {

bool FileReplacement::rename(const StorageSystem& system, const std::string& path,
                             const std::string& newPath)
{
    const auto* const byPath = dynamic_cast<const FileSystem2*>(&system);
    if (byPath != nullptr) {
        return byPath->fileRenameAs(path, newPath);
    }
    return system.fileRename(path, PathText::fileName(newPath)).has_value();
}

bool FileReplacement::replace(const StorageSystem& system, const std::string& path,
                              const std::string& newPath)
{
    return replaceAtOnce(system, path, newPath) || rename(system, path, newPath) ||
           replaceInSteps(system, path, newPath);
}

bool FileReplacement::replaceAtOnce(const StorageSystem& system, const std::string& path,
                                    const std::string& newPath)
{
    return system.replacer_ && system.replacer_(path, newPath);
}

// Many servers refuse to rename onto something. What stands there is set aside and not removed
// first: nothing is lost on a server that refuses to rename at all.
bool FileReplacement::replaceInSteps(const StorageSystem& system, const std::string& path,
                                     const std::string& newPath)
{
    const auto type = system.fileType(newPath);
    if (!type || isDirectory(*type)) {
        return false;
    }
    const auto name = PathText::fileName(newPath);
    const auto asideName = hiddenName(name, HiddenNameUse::SetAside);
    const auto aside = PathText::childId(PathText::parentId(newPath), {asideName});
    // A renaming that was reported as failed may have been done.
    if (!system.fileRename(newPath, asideName) && system.fileType(newPath)) {
        return false;
    }
    if (!rename(system, path, newPath)) {
        static_cast<void>(system.fileRename(aside, name));
        return false;
    }
    static_cast<void>(system.fileRemove(aside));
    return true;
}

} // namespace FileSystem
