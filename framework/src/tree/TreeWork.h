#pragma once

#include <FileSystem/Failure.h>
#include <FileSystem/TreeOperations.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace FileSystem {

/// What every operation on trees has: the queue, how much of it is in use, whom to tell, and what
/// has been told so far.
class TreeWork
{
public:
    TreeWork(const StorageSystem& system, TreeObserver& observer, const TreeOptions& options);

    StorageSystemQueue& queue() const noexcept { return *queue_; }

    bool isDryRun() const noexcept { return options_.isDryRun; }

    /// Whether another step may be begun: there is room, and nothing has stopped the work.
    bool mayBegin() const noexcept { return !isOver_ && inFlight_ < limit_; }

    /// Something has stopped the work: what is in flight is waited for, and nothing else begun.
    bool isOver() const noexcept { return isOver_; }

    void begin() noexcept { ++inFlight_; }

    void end() noexcept { --inFlight_; }

    bool isIdle() const noexcept { return inFlight_ == 0; }

    bool wants(const TreeEntry& entry);

    /// Counts and tells an entry that was done.
    void done(const TreeEntry& entry);

    /// Tells a failure, as long as nothing has stopped the work.
    void fail(const TreeEntry& entry, const Failure& failure);

    void found(std::uint64_t entries) noexcept { progress_.entriesFound += entries; }

    void passed(std::uint64_t entries = 1) noexcept { progress_.entriesDone += entries; }

    /// Waits for something in flight, and takes in what was answered.
    void pump();

    /// Tells how far it is. \param isAllFound every directory was read.
    void tellProgress(bool isAllFound);

    const TreeReport& report() const noexcept { return report_; }

private:
    TreeObserver& observer_;
    TreeOptions options_;
    std::unique_ptr<StorageSystemQueue> queue_;
    std::size_t limit_;
    std::size_t inFlight_ = 0;
    bool isOver_ = false;
    TreeProgress progress_;
    TreeReport report_;
};

/// What the type says of an entry. It is told by then.
bool isDirectory(const StorageSystemAttributes& attributes);
bool isSymbolicLink(const StorageSystemAttributes& attributes);

/// An entry of a directory.
TreeEntry entryBelow(const TreeEntry& directory, StorageSystemEntry&& entry);

} // namespace FileSystem
