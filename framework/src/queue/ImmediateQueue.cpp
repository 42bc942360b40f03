#include "queue/ImmediateQueue.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/HandleFatalError.h>

#include <type_traits>
#include <utility>

namespace FileSystem {

namespace {

/// What an operation whose result says no more than whether it succeeded gives its completion.
template <class... Results>
void complete(const StorageSystemQueue::Completion<Results...>& done, const Failure& failure,
              bool /*outcome*/)
{
    static_assert(sizeof...(Results) == 0);
    done(failure);
}

template <class Result, class Value>
void complete(const StorageSystemQueue::Completion<Result>& done, const Failure& failure,
              const std::optional<Value>& outcome)
{
    done(failure, outcome ? *outcome : Value());
}

} // namespace

ImmediateQueue::ImmediateQueue() = default;

ImmediateQueue::~ImmediateQueue() = default;

template <class Work, class... Results>
void ImmediateQueue::later(const char* operation, const std::string& path,
                           Completion<Results...> done, Work work)
{
    tasks_.push_back(
        [this, operation, path, done = std::move(done), work = std::move(work)]() mutable {
            using Outcome = std::decay_t<decltype(work())>;
            Outcome outcome{};
            Failure failure;
            try {
                FailureScope scope(operation, path);
                if (isThere() || fail(FailureCode::ConnectionLost)) {
                    outcome = work();
                }
                scope.result(outcome);
            } catch (const handle_fatal_error&) {
                // The system has lost its resources meanwhile. The scope has noted it.
                outcome = {};
            } catch (...) {
                // From what the host has given to be called. The operation is answered all the
                // same.
                tasks_.push_front([done = std::move(done), failure = Failure::last()] {
                    complete(done, failure, Outcome{});
                });
                throw;
            }
            if (!outcome) {
                failure = Failure::last();
            }
            complete(done, failure, outcome);
        });
}

std::size_t ImmediateQueue::do_pump(std::chrono::milliseconds /*limit*/)
{
    if (tasks_.empty()) {
        return 0;
    }
    auto task = std::move(tasks_.front());
    tasks_.pop_front();
    task();
    return 1;
}

std::size_t ImmediateQueue::do_pending() const noexcept
{
    return tasks_.size();
}

std::size_t ImmediateQueue::do_capacity() const noexcept
{
    return 1;
}

int ImmediateQueue::do_descriptor() const noexcept
{
    return -1;
}

void ImmediateQueue::do_open(const std::string& path, OpenMode mode, Permissions permissions,
                             Completion<File> done)
{
    later("open", path, std::move(done), [=] { return openNow(path, mode, permissions); });
}

void ImmediateQueue::do_openItself(const std::string& path, OpenMode mode, Completion<File> done)
{
    later("openItself", path, std::move(done), [=] { return openItselfNow(path, mode); });
}

void ImmediateQueue::do_read(File file, std::uint64_t offset, char* buffer, std::uint64_t size,
                             Completion<std::uint64_t> done)
{
    later("read", pathOf(file), std::move(done),
          [=] { return readNow(file, offset, buffer, size); });
}

void ImmediateQueue::do_write(File file, std::uint64_t offset, const char* bytes,
                              std::uint64_t size, Completion<> done)
{
    later("write", pathOf(file), std::move(done),
          [=] { return writeNow(file, offset, bytes, size); });
}

void ImmediateQueue::do_look(File file, Completion<const Attributes&> done)
{
    later("look", pathOf(file), std::move(done), [=] { return lookNow(file); });
}

void ImmediateQueue::do_setAttributes(File file, const Attributes& attributes, Completion<> done)
{
    later("setAttributes", pathOf(file), std::move(done),
          [=] { return setOfFileNow(file, attributes); });
}

void ImmediateQueue::do_close(File file, Completion<> done)
{
    later("close", pathOf(file), std::move(done), [=] { return closeNow(file); });
}

void ImmediateQueue::do_lookUp(const std::string& path, Completion<const Attributes&> done)
{
    later("lookUp", path, std::move(done), [=] { return lookUpNow(path); });
}

void ImmediateQueue::do_lookThrough(const std::string& path, Completion<const Attributes&> done)
{
    later("lookThrough", path, std::move(done), [=] { return lookThroughNow(path); });
}

void ImmediateQueue::do_list(const std::string& path, EntryReceiver receiver, Completion<> done)
{
    later("list", path, std::move(done), [=] { return listNow(path, receiver); });
}

void ImmediateQueue::do_makeDirectory(const std::string& path, Permissions permissions,
                                      Completion<> done)
{
    later("makeDirectory", path, std::move(done),
          [=] { return makeDirectoryNow(path, permissions); });
}

void ImmediateQueue::do_removeFile(const std::string& path, Completion<> done)
{
    later("removeFile", path, std::move(done), [=] { return removeFileNow(path); });
}

void ImmediateQueue::do_removeDirectory(const std::string& path, Completion<> done)
{
    later("removeDirectory", path, std::move(done), [=] { return removeDirectoryNow(path); });
}

void ImmediateQueue::do_rename(const std::string& path, const std::string& newPath,
                               Completion<> done)
{
    later("rename", path, std::move(done), [=] { return renameNow(path, newPath); });
}

void ImmediateQueue::do_replace(const std::string& path, const std::string& newPath,
                                Completion<> done)
{
    later("replace", path, std::move(done), [=] { return replaceNow(path, newPath); });
}

void ImmediateQueue::do_makeLink(const std::string& target, const std::string& path,
                                 Completion<> done)
{
    later("makeLink", path, std::move(done), [=] { return makeLinkNow(target, path); });
}

void ImmediateQueue::do_readLink(const std::string& path, Completion<const std::string&> done)
{
    later("readLink", path, std::move(done), [=] { return readLinkNow(path); });
}

void ImmediateQueue::do_setAttributes(const std::string& path, const Attributes& attributes,
                                      Completion<> done)
{
    later("setAttributes", path, std::move(done), [=] { return setOfPathNow(path, attributes); });
}

void ImmediateQueue::do_storageInfo(const std::string& path,
                                    Completion<const StorageSystemStorageInfo&> done)
{
    later("storageInfo", path, std::move(done), [=] { return storageInfoNow(path); });
}

} // namespace FileSystem
