#include "failure/NewFailure.h"
#include "path/NameCheck.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystemQueue.h>

#include <type_traits>
#include <utility>

namespace FileSystem {

StorageSystemQueue::StorageSystemQueue() = default;

StorageSystemQueue::~StorageSystemQueue() = default;

/// False: nothing can be there, and the completion is kept to say so.
template <class... Results>
bool StorageSystemQueue::admit(const char* operation, const std::string& path,
                               Completion<Results...>& done)
{
    {
        FailureScope scope(operation, path);
        if (scope.result(namesEntry(path))) {
            return true;
        }
    }
    refusals_.push_back([failure = Failure::last(), done = std::move(done)] {
        done(failure, std::remove_cv_t<std::remove_reference_t<Results>>()...);
    });
    do_wake();
    return false;
}

std::size_t StorageSystemQueue::pump(std::chrono::milliseconds limit)
{
    if (refusals_.empty()) {
        return do_pump(limit);
    }
    const auto refusal = std::move(refusals_.front());
    refusals_.pop_front();
    refusal();
    return 1;
}

void StorageSystemQueue::finish()
{
    while (pending() > 0) {
        pump();
    }
}

void StorageSystemQueue::confine(const std::string& directory)
{
    do_confine(directory);
}

void StorageSystemQueue::do_confine(const std::string& directory)
{
    static_cast<void>(directory);
}

std::size_t StorageSystemQueue::pending() const noexcept
{
    return refusals_.size() + do_pending();
}

std::size_t StorageSystemQueue::capacity() const noexcept
{
    return do_capacity();
}

int StorageSystemQueue::descriptor() const noexcept
{
    return do_descriptor();
}

void StorageSystemQueue::do_wake() noexcept {}

void StorageSystemQueue::open(const std::string& path, OpenMode mode, Permissions permissions,
                              Completion<File> done)
{
    if (admit("open", path, done)) {
        do_open(path, mode, permissions, std::move(done));
    }
}

void StorageSystemQueue::openItself(const std::string& path, OpenMode mode, Completion<File> done)
{
    if (admit("openItself", path, done)) {
        do_openItself(path, mode, std::move(done));
    }
}

void StorageSystemQueue::read(File file, std::uint64_t offset, char* buffer, std::uint64_t size,
                              Completion<std::uint64_t> done)
{
    do_read(file, offset, buffer, size, std::move(done));
}

void StorageSystemQueue::write(File file, std::uint64_t offset, const char* bytes,
                               std::uint64_t size, Completion<> done)
{
    do_write(file, offset, bytes, size, std::move(done));
}

void StorageSystemQueue::look(File file, Completion<const StorageSystemAttributes&> done)
{
    do_look(file, std::move(done));
}

bool StorageSystemQueue::beginCopies()
{
    return do_beginCopies();
}

bool StorageSystemQueue::do_beginCopies()
{
    return false;
}

void StorageSystemQueue::copy(File from, std::uint64_t fromOffset, std::uint64_t size, File to,
                              std::uint64_t toOffset, Completion<> done)
{
    do_copy(from, fromOffset, size, to, toOffset, std::move(done));
}

void StorageSystemQueue::do_copy(File /*from*/, std::uint64_t /*fromOffset*/,
                                 std::uint64_t /*size*/, File /*to*/, std::uint64_t /*toOffset*/,
                                 Completion<> done)
{
    refusals_.push_back(
        [done = std::move(done)] { done(newFailure("copy", {}, FailureCode::Unsupported)); });
    do_wake();
}

void StorageSystemQueue::setAttributes(File file, const StorageSystemAttributes& attributes,
                                       Completion<> done)
{
    do_setAttributes(file, attributes, std::move(done));
}

void StorageSystemQueue::close(File file, Completion<> done)
{
    do_close(file, std::move(done));
}

void StorageSystemQueue::closeAndLook(File file, const std::string& path,
                                      const std::string& newPath,
                                      Completion<const StorageSystemAttributes&, bool> done)
{
    do_closeAndLook(file, path, newPath, std::move(done));
}

void StorageSystemQueue::do_closeAndLook(File file, const std::string& path,
                                         const std::string& /*newPath*/,
                                         Completion<const StorageSystemAttributes&, bool> done)
{
    do_close(file, [this, path, done = std::move(done)](const Failure& failure) {
        if (failure) {
            done(failure, {}, false);
            return;
        }
        do_lookUp(path, [done](const Failure& why, const StorageSystemAttributes& now) {
            done(why, now, false);
        });
    });
}

void StorageSystemQueue::list(const std::string& path, EntryReceiver receiver, Completion<> done)
{
    if (admit("list", path, done)) {
        do_list(path, std::move(receiver), std::move(done));
    }
}

void StorageSystemQueue::makeDirectory(const std::string& path, Permissions permissions,
                                       Completion<> done)
{
    if (admit("makeDirectory", path, done)) {
        do_makeDirectory(path, permissions, std::move(done));
    }
}

void StorageSystemQueue::setAttributes(const std::string& path,
                                       const StorageSystemAttributes& attributes, Completion<> done)
{
    if (admit("setAttributes", path, done)) {
        do_setAttributes(path, attributes, std::move(done));
    }
}

void StorageSystemQueue::lookUp(const std::string& path,
                                Completion<const StorageSystemAttributes&> done)
{
    if (admit("lookUp", path, done)) {
        do_lookUp(path, std::move(done));
    }
}

void StorageSystemQueue::lookThrough(const std::string& path,
                                     Completion<const StorageSystemAttributes&> done)
{
    if (admit("lookThrough", path, done)) {
        do_lookThrough(path, std::move(done));
    }
}

void StorageSystemQueue::removeFile(const std::string& path, Completion<> done)
{
    if (admit("removeFile", path, done)) {
        do_removeFile(path, std::move(done));
    }
}

void StorageSystemQueue::removeDirectory(const std::string& path, Completion<> done)
{
    if (admit("removeDirectory", path, done)) {
        do_removeDirectory(path, std::move(done));
    }
}

void StorageSystemQueue::readLink(const std::string& path, Completion<const std::string&> done)
{
    if (admit("readLink", path, done)) {
        do_readLink(path, std::move(done));
    }
}

void StorageSystemQueue::storageInfo(const std::string& path,
                                     Completion<const StorageSystemStorageInfo&> done)
{
    if (admit("storageInfo", path, done)) {
        do_storageInfo(path, std::move(done));
    }
}

void StorageSystemQueue::rename(const std::string& path, const std::string& newPath,
                                Completion<> done)
{
    if (admit("rename", path, done) && admit("rename", newPath, done)) {
        do_rename(path, newPath, std::move(done));
    }
}

void StorageSystemQueue::renameToFree(const std::string& path, const std::string& newPath,
                                      Completion<> done)
{
    if (admit("rename", path, done) && admit("rename", newPath, done)) {
        do_renameToFree(path, newPath, std::move(done));
    }
}

void StorageSystemQueue::do_renameToFree(const std::string& path, const std::string& newPath,
                                         Completion<> done)
{
    do_rename(path, newPath, std::move(done));
}

void StorageSystemQueue::replace(const std::string& path, const std::string& newPath,
                                 Completion<> done)
{
    if (admit("replace", path, done) && admit("replace", newPath, done)) {
        do_replace(path, newPath, std::move(done));
    }
}

void StorageSystemQueue::makeLink(const std::string& target, const std::string& path,
                                  Completion<> done)
{
    if (admit("makeLink", target, done) && admit("makeLink", path, done)) {
        do_makeLink(target, path, std::move(done));
    }
}

} // namespace FileSystem
