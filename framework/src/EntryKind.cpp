#include "EntryKind.h"

#include "FailureWatch.h"
#include "PathText.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystem.h>

namespace FileSystem {

bool isFileOrLink(const StorageSystem& system, const std::string& path,
                  Utilities::Flags<StorageSystemFileTypeFlag> type)
{
    if (isRegularFile(type) || isSymbolicLink(type)) {
        return true;
    }
    if (!isDirectory(type)) {
        return fail(FailureCode::NotCopyable, {}, path);
    }
    return isDirectoryItself(system, path) && fail(FailureCode::IsDirectory, {}, path);
}

bool isStillDirectory(const StorageSystem& system, const std::string& path)
{
    const auto type = system.fileType(path);
    return type && (isDirectory(*type) || fail(FailureCode::Changed, {}, path));
}

// A directory holds itself; nothing is below a device.
bool isDirectoryItself(const StorageSystem& system, const std::string& path)
{
    if (system.getType() == StorageSystemType::Local) {
        return true;
    }
    const FailureWatch watch;
    if (system.fileType(PathText::childId(path, {"."}))) {
        return true;
    }
    const auto code = watch.noted().code();
    const bool isNone = code == FailureCode::NotFound || code == FailureCode::NotDirectory;
    return !isNone || fail(FailureCode::NotCopyable, {}, path);
}

} // namespace FileSystem
