#include "path/EntryKind.h"

#include "failure/FailureWatch.h"
#include "path/PathText.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystem.h>
#include <FileSystem/StorageSystemServices.h>

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

/// Whether a link is seen to lead to a pipe, a socket or a device. The text of one like
/// "/dev/stdout" need not name anything, so only the system can tell.
bool leadsToNoFile(const StorageSystem& system, const std::string& path)
{
    const FailureKeeper keeper;
    return system.services_->leadsToNoFile(path);
}

bool isReplaceable(const StorageSystem& system, const std::string& path,
                   Utilities::Flags<StorageSystemFileTypeFlag> type)
{
    const bool isOther = isSymbolicLink(type) && leadsToNoFile(system, path);
    return isOther ? fail(FailureCode::NotCopyable, "the link leads to no file", path)
                   : isFileOrLink(system, path, type);
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
