#include "queue/SlotQueue.h"

#include "GoneFileSystem.h"
#include "path/LinkResolution.h"
#include "path/PathText.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/HandleFatalError.h>

#include <type_traits>
#include <utility>

namespace FileSystem {

namespace {

using ReadStatus = StorageSystemReadResult::Status;

StorageSystemAttributes attributesOf(const StorageSystemFileInfo& info)
{
    StorageSystemAttributes attributes;
    attributes.size = info.size;
    attributes.modTime = info.modTime;
    // A system that tells neither has left them out: what is there has some kind or permissions.
    if (!info.type.isEmpty() || !info.permissions.isEmpty()) {
        attributes.type = isSymbolicLink(info.type)
                              ? Utilities::Flags(StorageSystemFileTypeFlag::SymbolicLink)
                              : info.type;
        attributes.permissions = info.permissions;
    }
    return attributes;
}

std::optional<StorageSystemAttributes> attributesAt(const StorageSystem& system,
                                                    const std::string& path)
{
    const auto info = system.fileInfo(path);
    return info ? std::make_optional(attributesOf(*info)) : std::nullopt;
}

std::optional<StorageSystemAttributes> attributesBehind(const StorageSystem& system,
                                                        const std::string& path)
{
    const auto attributes = attributesAt(system, path);
    const bool isLink = attributes && attributes->type && isSymbolicLink(*attributes->type);
    if (!isLink) {
        return attributes;
    }
    const auto end = followLinks(system, path);
    return end ? attributesAt(system, end->path) : std::nullopt;
}

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

SlotQueue::SlotQueue(const StorageSystem& system, std::shared_ptr<const std::atomic<bool>> isAlive)
    : system_(system)
    , isAlive_(std::move(isAlive))
{}

SlotQueue::~SlotQueue() = default;

const StorageSystem& SlotQueue::system() const
{
    return *isAlive_ ? system_ : goneFileSystem();
}

std::string SlotQueue::pathOf(File file) const
{
    const auto found = files_.find(file);
    return found != files_.end() ? found->second.path : std::string();
}

template <class Work, class... Results>
void SlotQueue::later(const char* operation, const std::string& path, Completion<Results...> done,
                      Work work)
{
    tasks_.push_back(
        [this, operation, path, done = std::move(done), work = std::move(work)]() mutable {
            using Outcome = std::decay_t<decltype(work())>;
            Outcome outcome{};
            Failure failure;
            try {
                FailureScope scope(operation, path);
                outcome = work();
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

template <class Work, class... Results>
void SlotQueue::laterOn(const char* operation, File file, Completion<Results...> done, Work work)
{
    later(operation, pathOf(file), std::move(done), [this, file, work = std::move(work)] {
        const auto found = files_.find(file);
        using Outcome = decltype(work(found->second));
        if (found == files_.end()) {
            fail(FailureCode::BadName, "the queue has no such open file");
            return Outcome{};
        }
        return work(found->second);
    });
}

std::size_t SlotQueue::do_pump(std::chrono::milliseconds /*limit*/)
{
    if (tasks_.empty()) {
        return 0;
    }
    auto task = std::move(tasks_.front());
    tasks_.pop_front();
    task();
    return 1;
}

std::size_t SlotQueue::do_pending() const noexcept
{
    return tasks_.size();
}

std::size_t SlotQueue::do_capacity() const noexcept
{
    return 1;
}

int SlotQueue::do_descriptor() const noexcept
{
    return -1;
}

void SlotQueue::do_open(const std::string& path, OpenMode mode, Permissions permissions,
                        Completion<File> done)
{
    later("open", path, std::move(done), [=] { return openFile(path, mode, permissions); });
}

std::optional<StorageSystemQueue::File> SlotQueue::openFile(const std::string& path, OpenMode mode,
                                                            Permissions permissions)
{
    auto file = system().fileOpen(path, mode, permissions);
    if (file == nullptr) {
        return std::nullopt;
    }
    const File number{++lastFile_};
    files_.emplace(number, OpenFile{path, std::move(file)});
    return number;
}

void SlotQueue::do_read(File file, std::uint64_t offset, char* buffer, std::uint64_t size,
                        Completion<std::uint64_t> done)
{
    laterOn("read", file, std::move(done), [=](OpenFile& open) -> std::optional<std::uint64_t> {
        if (!open.file->seek(offset)) {
            return std::nullopt;
        }
        const auto got = open.file->readFully(buffer, size);
        return got.status != ReadStatus::Error ? std::make_optional(got.count) : std::nullopt;
    });
}

void SlotQueue::do_write(File file, std::uint64_t offset, const char* bytes, std::uint64_t size,
                         Completion<> done)
{
    laterOn("write", file, std::move(done), [=](OpenFile& open) {
        return open.file->seek(offset) && open.file->writeFully(bytes, size);
    });
}

void SlotQueue::do_look(File file, Completion<const StorageSystemAttributes&> done)
{
    laterOn("look", file, std::move(done), [this](OpenFile& open) { return attributesOf(open); });
}

std::optional<StorageSystemAttributes> SlotQueue::attributesOf(OpenFile& open) const
{
    const auto& look = open.file->attributeKeeper_.look;
    const auto state = look && open.file->isValid() ? look() : std::nullopt;
    auto attributes = attributesBehind(system(), open.path);
    if (state && attributes) {
        attributes->permissions = state->permissions;
        attributes->size = state->size;
    }
    return attributes;
}

void SlotQueue::do_setAttributes(File file, const StorageSystemAttributes& attributes,
                                 Completion<> done)
{
    laterOn("setAttributes", file, std::move(done),
            [=](OpenFile& open) { return setOfFile(open, attributes); });
}

bool SlotQueue::setOfFile(OpenFile& open, const StorageSystemAttributes& attributes) const
{
    const auto& keeper = open.file->attributeKeeper_;
    if (attributes.size && !(keeper.cut && keeper.cut(*attributes.size))) {
        return keeper.cut ? false : fail(FailureCode::Unsupported);
    }
    StorageSystemAttributes others = attributes;
    if (keeper.set && attributes.permissions) {
        if (!keeper.set(*attributes.permissions)) {
            return false;
        }
        others.permissions.reset();
    }
    others.size.reset();
    return setOfPath(open.path, others);
}

void SlotQueue::do_close(File file, Completion<> done)
{
    laterOn("close", file, std::move(done), [this, file](OpenFile& open) {
        const bool isKept = closeFile(open);
        files_.erase(file);
        return isKept;
    });
}

bool SlotQueue::closeFile(OpenFile& open)
{
    return !open.file->mode().has(StorageSystemFileOpenModeFlag::Write) || open.file->commit();
}

void SlotQueue::do_lookUp(const std::string& path, Completion<const StorageSystemAttributes&> done)
{
    later("lookUp", path, std::move(done), [=] { return attributesAt(system(), path); });
}

void SlotQueue::do_lookThrough(const std::string& path,
                               Completion<const StorageSystemAttributes&> done)
{
    later("lookThrough", path, std::move(done), [=] { return attributesBehind(system(), path); });
}

void SlotQueue::do_list(const std::string& path, EntryReceiver receiver, Completion<> done)
{
    later("list", path, std::move(done), [=] { return listEntries(path, receiver); });
}

bool SlotQueue::listEntries(const std::string& path, const EntryReceiver& receiver) const
{
    const auto infos = system().directoryReadFully(path);
    if (!infos) {
        return false;
    }
    std::vector<StorageSystemEntry> entries;
    entries.reserve(infos->size());
    std::optional<std::string> leftOut;
    for (const auto& info : *infos) {
        if (PathText::isEntryName(info.name)) {
            entries.push_back({info.name, FileSystem::attributesOf(info)});
        } else {
            leftOut = info.name;
        }
    }
    static_cast<void>(entries.empty() || receiver(entries));
    return !leftOut || fail(FailureCode::Protocol, "an entry has a name that none can have",
                            PathText::childId(path, {*leftOut}));
}

void SlotQueue::do_makeDirectory(const std::string& path, Permissions permissions,
                                 Completion<> done)
{
    later("makeDirectory", path, std::move(done),
          [=] { return makeDirectoryAt(path, permissions); });
}

bool SlotQueue::makeDirectoryAt(const std::string& path, Permissions permissions) const
{
    const auto* const byPath = dynamic_cast<const FileSystem2*>(&system());
    if (byPath != nullptr) {
        return byPath->directoryCreateAs(path, false, permissions);
    }
    return system()
        .directoryCreate(PathText::parentId(path), {PathText::fileName(path)}, true, permissions)
        .has_value();
}

void SlotQueue::do_removeFile(const std::string& path, Completion<> done)
{
    later("removeFile", path, std::move(done), [=] { return system().fileRemove(path); });
}

void SlotQueue::do_removeDirectory(const std::string& path, Completion<> done)
{
    later("removeDirectory", path, std::move(done),
          [=] { return system().directoryRemove(path, false); });
}

void SlotQueue::do_rename(const std::string& path, const std::string& newPath, Completion<> done)
{
    later("rename", path, std::move(done), [=] { return renameTo(path, newPath); });
}

bool SlotQueue::renameTo(const std::string& path, const std::string& newPath) const
{
    const auto* const byPath = dynamic_cast<const FileSystem2*>(&system());
    if (byPath != nullptr) {
        return byPath->fileRenameAs(path, newPath);
    }
    const bool isNear = PathText::parentId(path) == PathText::parentId(newPath);
    return isNear ? system().fileRename(path, PathText::fileName(newPath)).has_value()
                  : fail(FailureCode::Unsupported, {}, newPath);
}

void SlotQueue::do_replace(const std::string& path, const std::string& newPath, Completion<> done)
{
    later("replace", path, std::move(done), [=] { return replaceBy(path, newPath); });
}

bool SlotQueue::replaceBy(const std::string& path, const std::string& newPath) const
{
    const auto& replacer = system().replacer_;
    return replacer ? replacer(path, newPath) : fail(FailureCode::Unsupported);
}

void SlotQueue::do_makeLink(const std::string& target, const std::string& path, Completion<> done)
{
    later("makeLink", path, std::move(done), [=] { return makeLinkAt(target, path); });
}

bool SlotQueue::makeLinkAt(const std::string& target, const std::string& path) const
{
    // Making a link replaces a file or a directory.
    if (system().fileInfo(path)) {
        return fail(FailureCode::Exists);
    }
    const auto* const byPath = dynamic_cast<const FileSystem2*>(&system());
    if (byPath != nullptr) {
        return byPath->fileSymbolicLinkCreateAs(target, path, true);
    }
    return system()
        .fileSymbolicLinkCreate(PathText::parentId(path), PathText::fileName(path), target, true)
        .has_value();
}

void SlotQueue::do_readLink(const std::string& path, Completion<const std::string&> done)
{
    later("readLink", path, std::move(done), [=] { return system().fileSymbolicLinkTarget(path); });
}

void SlotQueue::do_setAttributes(const std::string& path, const StorageSystemAttributes& attributes,
                                 Completion<> done)
{
    later("setAttributes", path, std::move(done), [=] { return setOfPath(path, attributes); });
}

bool SlotQueue::setOfPath(const std::string& path, const StorageSystemAttributes& attributes) const
{
    if (attributes.size) {
        return fail(FailureCode::Unsupported, "a size can be set of an open file only");
    }
    return (!attributes.permissions ||
            system().fileSetPermissions(path, *attributes.permissions)) &&
           (!attributes.modTime || system().fileSetModTime(path, *attributes.modTime));
}

void SlotQueue::do_storageInfo(const std::string& path,
                               Completion<const StorageSystemStorageInfo&> done)
{
    later("storageInfo", path, std::move(done), [=] { return system().fileStorageInfo(path); });
}

} // namespace FileSystem
