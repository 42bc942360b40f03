#pragma once

#include "local/PathResolver.h"
#include "posix/FileDescriptor.h"
#include "queue/ImmediateQueue.h"
#include "queue/OpenFiles.h"

#include <FileSystem/LocalFileSystem.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>

namespace FileSystem {

/// The queue of this machine's files. What is confined is worked on by open directories.
class LocalQueue final : public ImmediateQueue
{
public:
    /// \param isAlive whether the system is still there.
    LocalQueue(const LocalFileSystem& system, std::shared_ptr<const std::atomic<bool>> isAlive);
    ~LocalQueue() override;

private:
    void do_confine(const std::string& directory) override;
    bool isThere() const override;
    std::string pathOf(File file) const override;
    std::optional<File> openNow(const std::string& path, OpenMode mode,
                                Permissions permissions) override;
    std::optional<File> openItselfNow(const std::string& path, OpenMode mode) override;
    std::optional<std::uint64_t> readNow(File file, std::uint64_t offset, char* buffer,
                                         std::uint64_t size) override;
    bool writeNow(File file, std::uint64_t offset, const char* bytes, std::uint64_t size) override;
    std::optional<Attributes> lookNow(File file) override;
    bool setOfFileNow(File file, const Attributes& attributes) override;
    bool closeNow(File file) override;
    std::optional<Attributes> lookUpNow(const std::string& path) override;
    std::optional<Attributes> lookThroughNow(const std::string& path) override;
    bool listNow(const std::string& path, const EntryReceiver& receiver) override;
    bool makeDirectoryNow(const std::string& path, Permissions permissions) override;
    bool removeFileNow(const std::string& path) override;
    bool removeDirectoryNow(const std::string& path) override;
    bool renameNow(const std::string& path, const std::string& newPath) override;
    bool replaceNow(const std::string& path, const std::string& newPath) override;
    bool makeLinkNow(const std::string& target, const std::string& path) override;
    std::optional<std::string> readLinkNow(const std::string& path) override;
    bool setOfPathNow(const std::string& path, const Attributes& attributes) override;
    std::optional<StorageSystemStorageInfo> storageInfoNow(const std::string& path) override;

    std::optional<File> openAt(const std::string& path, int flags, mode_t permissions);

    const LocalFileSystem& system_;
    std::shared_ptr<const std::atomic<bool>> isAlive_;
    PathResolver places_;
    OpenFiles<Posix::FileDescriptor> files_;
};

} // namespace FileSystem
