#pragma once

#include <FileSystem/Failure.h>
#include <FileSystem/TreeOperations.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

/// What every operation on trees has: the queue, how much of it is in use, whom to tell, and what
/// has been told so far.
class TreeWork
{
public:
    /// \param systems that the work is done on; each gets a queue.
    /// \param most    how much is in flight at most, where the options do not say.
    TreeWork(const std::vector<const StorageSystem*>& systems, TreeObserver& observer,
             const TreeOptions& options,
             std::size_t most = std::numeric_limits<std::size_t>::max());

    /// \param queue that others use too. While they do, they pump it.
    TreeWork(std::shared_ptr<StorageSystemQueue> queue, TreeObserver& observer,
             const TreeOptions& options);

    StorageSystemQueue& queue(std::size_t system = 0) const noexcept { return *queues_[system]; }

    /// For a part of the work that counts what it has in flight by itself.
    std::shared_ptr<StorageSystemQueue> sharedQueue(std::size_t system) const
    {
        return queues_[system];
    }

    /// Takes another queue into use, after the others. Waits until it can be used, or something has
    /// stopped the work.
    void addQueue(const StorageSystem& system, std::size_t most);

    bool isDryRun() const noexcept { return options_.isDryRun; }

    /// Whether another step may be begun: there is room, and nothing has stopped the work.
    bool mayBegin() const noexcept { return !isOver_ && inFlight_ < room_; }

    /// Something has stopped the work: what is in flight is waited for, and nothing else begun.
    bool isOver() const noexcept { return isOver_; }

    /// Nobody is told anything any more, and nothing else begun.
    void mute() noexcept { isOver_ = isMuted_ = true; }

    /// When a step was begun, for waitsForRoom().
    using Beginning = std::size_t;

    Beginning begin() noexcept;

    void end() noexcept { --inFlight_; }

    /// Whether a step that is about to end with this failure is to be begun once more: the system
    /// has no descriptors, handles or memory left, and others that were in flight give some back.
    /// From then on fewer are in flight at once, until enough of them have ended well.
    bool waitsForRoom(const Failure& why, Beginning beginning) noexcept;

    bool isIdle() const noexcept { return inFlight_ == 0; }

    std::size_t inFlight() const noexcept { return inFlight_; }

    bool wants(const TreeEntry& entry);

    /// In which of two subdirectories to go on.
    bool comesFirst(const TreeEntry& left, const TreeEntry& right);

    /// Counts and tells an entry that was done.
    void done(const TreeEntry& entry);

    /// Counts and tells an entry that was left out for what stands there.
    void skipped(const TreeEntry& entry);

    /// Tells what a copy that resumes has of an entry.
    void kept(const TreeEntry& entry, const std::string& path, TreePart part);

    bool removes(const TreeEntry& entry);

    /// Counts and tells an entry that the source has not and the target has no more.
    void removed(const TreeEntry& entry);

    /// Tells a failure, as long as nothing has stopped the work.
    void fail(const TreeEntry& entry, const Failure& failure);

    /// Tells what was not kept of an entry that was done.
    void lose(const TreeEntry& entry, const Failure& failure);

    void found(std::uint64_t entries) noexcept { progress_.entriesFound += entries; }

    void passed() noexcept { ++progress_.entriesDone; }

    /// An entry that is wanted is, or is not to be worked on after all.
    void expect(const StorageSystemAttributes& entry);
    void dismiss(const StorageSystemAttributes& entry);

    /// One that was wanted needs nothing more.
    void passed(const TreeEntry& entry);

    /// The entry is worked on.
    void turnTo(const TreeEntry& entry) { current_ = entry; }

    TreeProgress& progress() noexcept { return progress_; }

    TreeReport& report() noexcept { return report_; }

    /// Whether a queue has anything in flight: after an exception, what was begun and what has
    /// ended need not come out even.
    bool hasPending() const noexcept;

    /// Waits for something in flight, and takes in what was answered.
    void pump();

    /// Tells how far it is. \param isAllFound every directory was read.
    void tellProgress(bool isAllFound);

private:
    std::size_t pumpImmediate();
    void wait();
    void allow(std::size_t inFlight);
    void grow() noexcept;

    TreeObserver& observer_;
    TreeOptions options_;
    std::vector<std::shared_ptr<StorageSystemQueue>> queues_;
    std::size_t limit_ = 1; ///< What may be in flight at most.
    std::size_t room_ = 1;  ///< What may be in flight now.
    std::size_t inFlight_ = 0;
    bool isAlone_ = false;          ///< What was begun last had nothing else in flight beside it.
    std::size_t shortages_ = 0;     ///< How often the room was found to be too much.
    std::size_t doneSinceThen_ = 0; ///< Or since it was last made larger.
    bool isOver_ = false;
    bool isMuted_ = false;
    TreeProgress progress_;
    std::optional<TreeEntry> current_;
    TreeReport report_;
};

/// What the type says of an entry. It is told by then.
bool isDirectory(const StorageSystemAttributes& attributes);
bool isSymbolicLink(const StorageSystemAttributes& attributes);

/// Of what is still to be done: the step that was found last, without it.
template <class Value>
Value takeLast(std::vector<Value>& values)
{
    auto last = std::move(values.back());
    values.pop_back();
    return last;
}

/// An entry of a directory.
TreeEntry entryBelow(const TreeEntry& directory, StorageSystemEntry&& entry);

} // namespace FileSystem
