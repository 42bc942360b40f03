#pragma once

#include <FileSystem/StorageSystemQueue.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>

namespace FileSystem {

/// A queue whose operations are done here and now, one in each pump(), in their order. Each of the
/// functions that do them notes a failure where it answers false or nothing.
class ImmediateQueue : public StorageSystemQueue
{
public:
    ImmediateQueue(const ImmediateQueue&) = delete;
    ImmediateQueue& operator=(const ImmediateQueue&) = delete;
    ~ImmediateQueue() override;

protected:
    using Attributes = StorageSystemAttributes;

    ImmediateQueue();

    /// Whether operations can be done at all; otherwise each fails with ConnectionLost.
    virtual bool isThere() const = 0;
    virtual std::string pathOf(File file) const = 0;
    virtual std::optional<File> openNow(const std::string& path, OpenMode mode,
                                        Permissions permissions) = 0;
    virtual std::optional<File> openItselfNow(const std::string& path, OpenMode mode) = 0;
    virtual std::optional<std::uint64_t> readNow(File file, std::uint64_t offset, char* buffer,
                                                 std::uint64_t size) = 0;
    virtual bool writeNow(File file, std::uint64_t offset, const char* bytes,
                          std::uint64_t size) = 0;
    virtual std::optional<Attributes> lookNow(File file) = 0;
    virtual bool setOfFileNow(File file, const Attributes& attributes) = 0;
    virtual bool closeNow(File file) = 0;
    virtual std::optional<Attributes> lookUpNow(const std::string& path) = 0;
    virtual std::optional<Attributes> lookThroughNow(const std::string& path) = 0;
    virtual bool listNow(const std::string& path, const EntryReceiver& receiver) = 0;
    virtual bool makeDirectoryNow(const std::string& path, Permissions permissions) = 0;
    virtual bool removeFileNow(const std::string& path) = 0;
    virtual bool removeDirectoryNow(const std::string& path) = 0;
    virtual bool renameNow(const std::string& path, const std::string& newPath) = 0;
    virtual bool replaceNow(const std::string& path, const std::string& newPath) = 0;
    virtual bool makeLinkNow(const std::string& target, const std::string& path) = 0;
    virtual std::optional<std::string> readLinkNow(const std::string& path) = 0;
    virtual bool setOfPathNow(const std::string& path, const Attributes& attributes) = 0;
    virtual std::optional<StorageSystemStorageInfo> storageInfoNow(const std::string& path) = 0;

private:
    std::size_t do_pump(std::chrono::milliseconds limit) final;
    std::size_t do_pending() const noexcept final;
    std::size_t do_capacity() const noexcept final;
    int do_descriptor() const noexcept final;
    void do_open(const std::string& path, OpenMode mode, Permissions permissions,
                 Completion<File> done) final;
    void do_openItself(const std::string& path, OpenMode mode, Completion<File> done) final;
    void do_read(File file, std::uint64_t offset, char* buffer, std::uint64_t size,
                 Completion<std::uint64_t> done) final;
    void do_write(File file, std::uint64_t offset, const char* bytes, std::uint64_t size,
                  Completion<> done) final;
    void do_look(File file, Completion<const Attributes&> done) final;
    void do_setAttributes(File file, const Attributes& attributes, Completion<> done) final;
    void do_close(File file, Completion<> done) final;
    void do_lookUp(const std::string& path, Completion<const Attributes&> done) final;
    void do_lookThrough(const std::string& path, Completion<const Attributes&> done) final;
    void do_list(const std::string& path, EntryReceiver receiver, Completion<> done) final;
    void do_makeDirectory(const std::string& path, Permissions permissions,
                          Completion<> done) final;
    void do_removeFile(const std::string& path, Completion<> done) final;
    void do_removeDirectory(const std::string& path, Completion<> done) final;
    void do_rename(const std::string& path, const std::string& newPath, Completion<> done) final;
    void do_replace(const std::string& path, const std::string& newPath, Completion<> done) final;
    void do_makeLink(const std::string& target, const std::string& path, Completion<> done) final;
    void do_readLink(const std::string& path, Completion<const std::string&> done) final;
    void do_setAttributes(const std::string& path, const Attributes& attributes,
                          Completion<> done) final;
    void do_storageInfo(const std::string& path,
                        Completion<const StorageSystemStorageInfo&> done) final;

    /// \param work answers with something that is false where it failed.
    template <class Work, class... Results>
    void later(const char* operation, const std::string& path, Completion<Results...> done,
               Work work);

    std::deque<std::function<void()>> tasks_;
};

} // namespace FileSystem
