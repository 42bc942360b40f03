#pragma once

#include <FileSystem/Export.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace FileSystem {

/// The mutexes that guard a handle: those of its ancestors, root first, then its own.
///
/// Every handle locks in this one order, so two threads that want handles of one tree cannot
/// deadlock; two trees share no mutex and never wait for each other. The mutexes are shared along
/// the chain and therefore outlive a parent that is destroyed before its child. Immutable after
/// construction; any thread may use it.
class FILESYSTEM_EXPORT HandleMutexChain
{
public:
    /// \param ancestors chain of the parent handle; null for a root.
    explicit HandleMutexChain(const HandleMutexChain* ancestors);

    /// Blocks until every mutex of the chain is this thread's. Recursive: a thread that holds the
    /// chain may lock it, or the chain of an ancestor, again. Throws std::system_error, holding
    /// nothing, when the operating system refuses a lock.
    void lock() const;

    /// As lock(), but gives up after `limit`: false, holding nothing.
    bool tryLockFor(std::chrono::milliseconds limit) const;

    /// Undoes one lock() of this thread.
    void unlock() const noexcept;

private:
    bool tryLock() const;
    void unlockFirst(std::size_t count) const noexcept;

    std::vector<std::shared_ptr<std::recursive_mutex>> mutexes_;
};

/// Unlocks a chain when its HandleLock goes. Keeps the chain alive, so the handle may go first.
class FILESYSTEM_EXPORT HandleUnlock
{
public:
    /// For a lock that is not held; is never called.
    HandleUnlock() = default;

    /// Keeps `chain`, which this thread has locked.
    explicit HandleUnlock(std::shared_ptr<const HandleMutexChain> chain) noexcept;

    /// Undoes one lock() of this thread on `chain`.
    void operator()(const HandleMutexChain* chain) const noexcept { chain->unlock(); }

private:
    std::shared_ptr<const HandleMutexChain> chain_;
};

/// Holds a handle's mutex chain locked for as long as it lives. To be destroyed by the thread that
/// made it. Points to the chain itself: a lock is taken for every call into libssh, and allocates
/// nothing.
using HandleLock = std::unique_ptr<const HandleMutexChain, HandleUnlock>;

/// Locks `chain`; blocks until it is free. Throws as HandleMutexChain::lock() does.
FILESYSTEM_EXPORT HandleLock lockChain(const std::shared_ptr<const HandleMutexChain>& chain);

/// Locks `chain` within `limit`. Null: others held it for all that time.
FILESYSTEM_EXPORT HandleLock lockChainWithin(const std::shared_ptr<const HandleMutexChain>& chain,
                                             std::chrono::milliseconds limit);

} // namespace FileSystem
