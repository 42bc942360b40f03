#include "tree/TreeWork.h"

#include "failure/CallbackScope.h"
#include "path/PathText.h"

#include <FileSystem/StorageSystem.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include <poll.h>

namespace FileSystem {

namespace {

// How long nobody need be asked whether to go on.
constexpr int longestWait = 100; // Milliseconds.

/// One for what is neither a directory nor a link, as far as is told.
std::uint64_t filesIn(const StorageSystemAttributes& attributes)
{
    const bool isFile = attributes.type && !isDirectory(attributes) && !isSymbolicLink(attributes);
    return isFile ? 1 : 0;
}

} // namespace

TreeWork::TreeWork(const std::vector<const StorageSystem*>& systems, TreeObserver& observer,
                   const TreeOptions& options, std::size_t most)
    : observer_(observer)
    , options_(options)
{
    for (const auto* const system : systems) {
        addQueue(*system, most);
    }
}

TreeWork::TreeWork(std::shared_ptr<StorageSystemQueue> queue, TreeObserver& observer,
                   const TreeOptions& options)
    : observer_(observer)
    , options_(options)
{
    queues_.push_back(std::move(queue));
    allow(queues_.back()->capacity());
}

void TreeWork::addQueue(const StorageSystem& system, std::size_t most)
{
    queues_.push_back(system.createQueue([this] {
        tellProgress(false);
        return !isOver_;
    }));
    allow(std::min(queues_.back()->capacity(), most));
}

void TreeWork::allow(std::size_t inFlight)
{
    limit_ = options_.inFlight != 0 ? options_.inFlight : std::max(limit_, inFlight);
    room_ = limit_;
}

TreeWork::Beginning TreeWork::begin() noexcept
{
    isAlone_ = inFlight_ == 0;
    ++inFlight_;
    return shortages_;
}

/// Those that were begun before a shortage was met say nothing of the room that is left since.
bool TreeWork::waitsForRoom(const Failure& why, Beginning beginning) noexcept
{
    if (why.code() != FailureCode::NoResources || isOver_ || isAlone_) {
        return false;
    }
    if (beginning == shortages_) {
        ++shortages_;
        doneSinceThen_ = 0;
        room_ = std::max<std::size_t>(1, inFlight_ / 2);
    }
    return true;
}

/// Slowly, so that what is short for long is met seldom.
void TreeWork::grow() noexcept
{
    if (room_ < limit_ && ++doneSinceThen_ >= 2 * room_) {
        doneSinceThen_ = 0;
        ++room_;
    }
}

bool TreeWork::wants(const TreeEntry& entry)
{
    if (isOver_) {
        return false;
    }
    const CallbackScope callback;
    return observer_.wants(entry);
}

bool TreeWork::comesFirst(const TreeEntry& left, const TreeEntry& right)
{
    const CallbackScope callback;
    return observer_.comesFirst(left, right);
}

void TreeWork::expect(const StorageSystemAttributes& entry)
{
    progress_.filesFound += filesIn(entry);
}

void TreeWork::dismiss(const StorageSystemAttributes& entry)
{
    progress_.filesFound -= filesIn(entry);
}

void TreeWork::passed(const TreeEntry& entry)
{
    passed();
    progress_.filesDone += filesIn(entry.attributes);
    turnTo(entry);
}

void TreeWork::done(const TreeEntry& entry)
{
    if (isMuted_) {
        return;
    }
    grow();
    auto& count = isDirectory(entry.attributes)      ? report_.directories
                  : isSymbolicLink(entry.attributes) ? report_.links
                                                     : report_.files;
    ++count;
    passed(entry);
    const CallbackScope callback;
    observer_.done(entry);
}

void TreeWork::skipped(const TreeEntry& entry)
{
    if (isMuted_) {
        return;
    }
    grow();
    ++report_.skipped;
    passed(entry);
    const CallbackScope callback;
    observer_.skipped(entry);
}

void TreeWork::kept(const TreeEntry& entry, const std::string& path, TreePart part)
{
    if (!isMuted_) {
        const CallbackScope callback;
        observer_.kept(entry, path, part);
    }
}

bool TreeWork::removes(const TreeEntry& entry)
{
    if (isOver_) {
        return false;
    }
    const CallbackScope callback;
    return observer_.removes(entry);
}

void TreeWork::removed(const TreeEntry& entry)
{
    if (isMuted_) {
        return;
    }
    ++report_.removed;
    const CallbackScope callback;
    observer_.removed(entry);
}

void TreeWork::fail(const TreeEntry& entry, const Failure& failure)
{
    passed(entry);
    lose(entry, failure);
}

void TreeWork::lose(const TreeEntry& entry, const Failure& failure)
{
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

bool TreeWork::hasPending() const noexcept
{
    return std::any_of(queues_.begin(), queues_.end(),
                       [](const auto& queue) { return queue->pending() > 0; });
}

void TreeWork::pump()
{
    std::size_t answered = pumpImmediate();
    for (const auto& queue : queues_) {
        if (queue->descriptor() != -1) {
            answered += queue->pump(std::chrono::milliseconds(0));
        }
    }
    if (answered == 0) {
        wait();
    }
}

/// Where operations are done here and now, several at once keep the others busy.
std::size_t TreeWork::pumpImmediate()
{
    constexpr std::size_t most = 32;
    std::size_t answered = 0;
    for (const auto& queue : queues_) {
        for (std::size_t i = 0; i < most && queue->descriptor() == -1 && queue->pending() > 0;
             ++i) {
            answered += queue->pump();
        }
    }
    return answered;
}

void TreeWork::wait()
{
    std::vector<pollfd> descriptors;
    for (const auto& queue : queues_) {
        if (queue->descriptor() != -1) {
            descriptors.push_back({queue->descriptor(), POLLIN, 0});
        }
    }
    static_cast<void>(::poll(descriptors.data(), descriptors.size(), longestWait));
}

void TreeWork::tellProgress(bool isAllFound)
{
    if (isOver_) {
        return;
    }
    progress_.isAllFound = isAllFound;
    progress_.entry = current_ ? &*current_ : nullptr;
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
    TreeEntry below;
    below.path = PathText::childId(directory.path, {entry.name});
    if (!directory.target.empty()) {
        below.target = PathText::childId(directory.target, {entry.name});
    }
    below.below =
        directory.below.empty() ? std::move(entry.name) : directory.below + "/" + entry.name;
    below.attributes = entry.attributes;
    return below;
}

} // namespace FileSystem
