#include "FileCopy.h"

#include "PartialEntry.h"

#include <FileSystem/StorageSystem.h>
#include <FileSystem/StorageSystemFile.h>

#include <utility>

namespace FileSystem {

using Option = StorageSystemCopyOptionFlag;

FileCopy::FileCopy(const CopyTask& task, const StorageSystemFileInfo& source,
                   std::string sourcePath, std::string directory, std::string name)
    : task_(task)
    , source_(source)
    , sourcePath_(std::move(sourcePath))
    , directory_(std::move(directory))
    , name_(std::move(name))
{}

bool FileCopy::copyFile() const
{
    PartialEntry partial(task_.target, directory_, name_);
    std::uint64_t bytes = 0;
    if (!fill(partial, bytes)) {
        return false;
    }
    // The file is closed by now: what a system could not keep after all shows here.
    if (!isWhole(bytes) || task_.target.fileSize(partial.path()) != bytes ||
        !setAttributes(partial.path()) || !partial.publish(replaces())) {
        return false;
    }
    task_.progress.complete(bytes);
    return true;
}

/// An end that came before the known one is that of a file that has been cut since, or of an answer
/// that was not true. This machine's own files end where they end: some have sizes that mean
/// nothing.
bool FileCopy::isWhole(std::uint64_t bytes) const
{
    return bytes >= source_.size || task_.source.getType() == StorageSystemType::Local ||
           task_.source.fileSize(sourcePath_) == bytes;
}

bool FileCopy::fill(PartialEntry& partial, std::uint64_t& bytes) const
{
    const auto source = task_.source.fileOpen(sourcePath_, StorageSystemFileOpenModeFlag::Read);
    if (source == nullptr) {
        return false;
    }
    // What is to have permissions of its own is nobody else's to read before it has them.
    const auto permissions =
        task_.options.has(Option::PreservePermissions)
            ? PosixFilePermissionFlag::OwnerRead | PosixFilePermissionFlag::OwnerWrite
            : defaultFilePermissions;
    const auto target = partial.createFile(permissions);
    if (target == nullptr) {
        return false;
    }
    source->knownSize_ = source_.size;
    const auto progress = [this, &bytes](std::uint64_t done, std::uint64_t /*total*/) {
        bytes = done;
        return task_.progress.report(done);
    };
    return source->copy(*target, progress, task_.bufferSize) && target->commit();
}

// The time first: a file that nobody may write may refuse it.
bool FileCopy::setAttributes(const std::string& path) const
{
    return (!task_.options.has(Option::PreserveModTime) ||
            task_.target.fileSetModTime(path, source_.modTime)) &&
           (!task_.options.has(Option::PreservePermissions) ||
            task_.target.fileSetPermissions(path, source_.permissions));
}

bool FileCopy::copyLink() const
{
    const auto text = task_.source.fileSymbolicLinkTarget(sourcePath_);
    if (!text || !task_.progress.report()) {
        return false;
    }
    PartialEntry partial(task_.target, directory_, name_);
    return partial.createLink(*text) && task_.progress.report() && partial.publish(replaces());
}

bool FileCopy::replaces() const
{
    return !task_.options.has(Option::FailIfExists);
}

} // namespace FileSystem
