// How a host tests what it does with storage systems, without a server or a disk: its backup
// function, here a short one, meets a disk that is full, and then a system that fails at each of
// its steps in turn. A backup must be there after every one of them.

#include <FileSystem/Failure.h>
#include <FileSystem/MemoryFileSystem.h>

#include <iostream>
#include <optional>
#include <string>

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FileSystem2;
using FileSystem::MemoryFault;
using FileSystem::MemoryFileSystem;
using FileSystem::MemoryOperation;

namespace {

// ---- What is tested: it would stand in the host's own sources.

/// Copies a directory to "/backup". The backup before goes when the new one is complete. Empty: it
/// is done.
Failure backUp(const FileSystem2& source, const std::string& directory, const FileSystem2& target)
{
    using Option = FileSystem::StorageSystemCopyOptionFlag;
    static_cast<void>(target.directoryRemove("/backup.new", true)); // Of an attempt before.
    if (!source.fileCopyAs(directory, target, "/backup.new", {}, Option::Recursive)) {
        auto why = Failure::last();
        static_cast<void>(target.directoryRemove("/backup.new", true));
        return why;
    }
    // A system does not rename onto what stands there.
    static_cast<void>(target.directoryRemove("/backup.old", true));
    static_cast<void>(target.directoryRenameAs("/backup", "/backup.old"));
    if (!target.directoryRenameAs("/backup.new", "/backup")) {
        auto why = Failure::last();
        static_cast<void>(target.directoryRenameAs("/backup.old", "/backup"));
        return why;
    }
    static_cast<void>(target.directoryRemove("/backup.old", true));
    return {};
}

// ---- The test.

bool write(const FileSystem2& system, const std::string& path, const std::string& bytes)
{
    const auto file = system.fileCreateAs(path, false, true);
    return file && file->writeFully(bytes.data(), bytes.size()) && file->close();
}

std::string read(const FileSystem2& system, const std::string& path)
{
    using Flag = FileSystem::StorageSystemFileOpenModeFlag;
    const auto file = system.fileOpen(path, Flag::Read);
    std::string bytes(64, '\0');
    bytes.resize(file ? file->readFully(bytes.data(), bytes.size()).count : 0);
    return bytes;
}

/// A source with something new, and a target with the backup before.
bool prepare(const FileSystem2& source, const FileSystem2& target)
{
    return write(source, "/letters/letter", "new text, longer than the old one") &&
           write(target, "/backup/letter", "old text");
}

bool keepsTheOldBackupWhenTheDiskIsFull()
{
    const MemoryFileSystem source;
    MemoryFileSystem target;
    if (!prepare(source, target)) {
        return false;
    }
    target.setCapacity(20);
    return backUp(source, "/letters", target).code() == FailureCode::NoSpace &&
           read(target, "/backup/letter") == "old text" && !target.fileInfo("/backup.new");
}

bool hasABackupWhateverStepFails()
{
    for (int step = 0;; ++step) {
        const MemoryFileSystem source;
        MemoryFileSystem target;
        if (!prepare(source, target)) {
            return false;
        }
        int left = step;
        target.setFaultFunction([&](const MemoryOperation&) -> std::optional<MemoryFault> {
            return left-- == 0 ? std::make_optional(MemoryFault::failure(FailureCode::Other))
                               : std::nullopt;
        });
        const auto why = backUp(source, "/letters", target);
        target.setFaultFunction({});
        const auto kept = read(target, "/backup/letter");
        const bool isNew = kept == "new text, longer than the old one";
        if (why ? !isNew && kept != "old text" : !isNew) {
            std::cerr << "nothing to go back to after step " << step << '\n';
            return false;
        }
        if (left >= 0) {
            std::cout << step << " steps, each of which may fail\n";
            return true;
        }
    }
}

} // namespace

int main()
{
    const bool isFine = keepsTheOldBackupWhenTheDiskIsFull() && hasABackupWhateverStepFails();
    std::cout << (isFine ? "passed\n" : "failed\n");
    return isFine ? 0 : 1;
}
