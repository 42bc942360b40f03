#pragma once

#include <FileSystem/FileSystem2.h>
#include <FileSystem/StorageSystemQueue.h>

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace FileSystem {

/// The queue of a storage system that has none of its own: pump() does one operation after the
/// other, through the system's own operations.
class SlotQueue final : public StorageSystemQueue
{
public:
    /// \param isAlive whether the system is still there.
    SlotQueue(const StorageSystem& system, std::shared_ptr<const std::atomic<bool>> isAlive);
    ~SlotQueue() override;

protected:
    std::size_t do_pump(std::chrono::milliseconds limit) override;
    std::size_t do_pending() const noexcept override;
    std::size_t do_capacity() const noexcept override;
    int do_descriptor() const noexcept override;
    void do_open(const std::string& path, OpenMode mode, Permissions permissions,
                 Completion<File> done) override;
    void do_read(File file, std::uint64_t offset, char* buffer, std::uint64_t size,
                 Completion<std::uint64_t> done) override;
    void do_write(File file, std::uint64_t offset, const char* bytes, std::uint64_t size,
                  Completion<> done) override;
    void do_look(File file, Completion<const StorageSystemAttributes&> done) override;
    void do_setAttributes(File file, const StorageSystemAttributes& attributes,
                          Completion<> done) override;
    void do_close(File file, Completion<> done) override;
    void do_lookUp(const std::string& path,
                   Completion<const StorageSystemAttributes&> done) override;
    void do_lookThrough(const std::string& path,
                        Completion<const StorageSystemAttributes&> done) override;
    void do_list(const std::string& path, EntryReceiver receiver, Completion<> done) override;
    void do_makeDirectory(const std::string& path, Permissions permissions,
                          Completion<> done) override;
    void do_removeFile(const std::string& path, Completion<> done) override;
    void do_removeDirectory(const std::string& path, Completion<> done) override;
    void do_rename(const std::string& path, const std::string& newPath, Completion<> done) override;
    void do_replace(const std::string& path, const std::string& newPath,
                    Completion<> done) override;
    void do_makeLink(const std::string& target, const std::string& path,
                     Completion<> done) override;
    void do_readLink(const std::string& path, Completion<const std::string&> done) override;
    void do_setAttributes(const std::string& path, const StorageSystemAttributes& attributes,
                          Completion<> done) override;
    void do_storageInfo(const std::string& path,
                        Completion<const StorageSystemStorageInfo&> done) override;

private:
    struct OpenFile
    {
        std::string path;
        std::unique_ptr<StorageSystemFile> file;
    };

    /// \param work answers with something that is false where it failed.
    template <class Work, class... Results>
    void later(const char* operation, const std::string& path, Completion<Results...> done,
               Work work);

    /// later() for an open file, which the work is given.
    template <class Work, class... Results>
    void laterOn(const char* operation, File file, Completion<Results...> done, Work work);

    /// Or one on which every operation fails.
    const StorageSystem& system() const;
    std::string pathOf(File file) const;

    std::optional<File> openFile(const std::string& path, OpenMode mode, Permissions permissions);
    bool closeFile(OpenFile& open);
    std::optional<StorageSystemAttributes> attributesOf(OpenFile& open) const;
    bool setOfFile(OpenFile& open, const StorageSystemAttributes& attributes) const;
    bool setOfPath(const std::string& path, const StorageSystemAttributes& attributes) const;
    bool listEntries(const std::string& path, const EntryReceiver& receiver) const;
    bool makeDirectoryAt(const std::string& path, Permissions permissions) const;
    bool removeDirectoryAt(const std::string& path) const;
    bool renameTo(const std::string& path, const std::string& newPath) const;
    bool replaceBy(const std::string& path, const std::string& newPath) const;
    bool makeLinkAt(const std::string& target, const std::string& path) const;

    const StorageSystem& system_;
    std::shared_ptr<const std::atomic<bool>> isAlive_;
    std::deque<std::function<void()>> tasks_;
    std::map<File, OpenFile> files_;
    std::uint64_t lastFile_ = 0;
};

} // namespace FileSystem
