#include "tree/TreeWork.h"

#include "failure/CallbackScope.h"
#include "path/PathText.h"

#include <FileSystem/StorageSystem.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace FileSystem {

namespace {

// How long nobody need be asked whether to go on.
constexpr std::chrono::milliseconds longestWait{100};

} // namespace

TreeWork::TreeWork(const StorageSystem& system, TreeObserver& observer, const TreeOptions& options)
    : observer_(observer)
    , options_(options)
    , queue_(system.createQueue())
    , limit_(options.inFlight != 0 ? options.inFlight : queue_->capacity())
{}

bool TreeWork::wants(const TreeEntry& entry)
{
    const CallbackScope callback;
    return observer_.wants(entry);
}

void TreeWork::done(const TreeEntry& entry)
{
    auto& count = isDirectory(entry.attributes)      ? report_.directories
                  : isSymbolicLink(entry.attributes) ? report_.links
                                                     : report_.files;
    ++count;
    passed();
    const CallbackScope callback;
    observer_.done(entry);
}

void TreeWork::fail(const TreeEntry& entry, const Failure& failure)
{
    passed();
    if (isOver_) {
        return;
    }
    if (report_.failed++ == 0) {
        report_.failure = failure;
    }
    // Everything else would fail for the same reason.
    isOver_ = failure.code() == FailureCode::ConnectionLost;
    const CallbackScope callback;
    if (!observer_.failed(entry, failure)) {
        isOver_ = true;
        report_.isStopped = true;
    }
}

void TreeWork::pump()
{
    static_cast<void>(queue_->pump(longestWait));
}

void TreeWork::tellProgress(bool isAllFound)
{
    if (isOver_) {
        return;
    }
    progress_.isAllFound = isAllFound;
    const CallbackScope callback;
    if (!observer_.progress(progress_)) {
        isOver_ = true;
        report_.isStopped = true;
    }
}

bool isDirectory(const StorageSystemAttributes& attributes)
{
    return attributes.type && attributes.type->has(StorageSystemFileTypeFlag::Directory);
}

bool isSymbolicLink(const StorageSystemAttributes& attributes)
{
    return attributes.type && attributes.type->has(StorageSystemFileTypeFlag::SymbolicLink);
}

TreeEntry entryBelow(const TreeEntry& directory, StorageSystemEntry&& entry)
{
    return {PathText::childId(directory.path, {entry.name}),
            directory.below.empty() ? std::move(entry.name) : directory.below + "/" + entry.name,
            entry.attributes};
}

} // namespace FileSystem
