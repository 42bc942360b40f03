#include <FileSystem/HandleLock.h>

#include <thread>
#include <utility>

namespace FileSystem {

HandleMutexChain::HandleMutexChain(const HandleMutexChain* ancestors)
{
    if (ancestors != nullptr) {
        mutexes_ = ancestors->mutexes_;
    }
    mutexes_.push_back(std::make_shared<std::recursive_mutex>());
}

void HandleMutexChain::lock() const
{
    std::size_t locked = 0;
    try {
        for (const auto& mutex : mutexes_) {
            mutex->lock();
            ++locked;
        }
    } catch (...) {
        unlockFirst(locked);
        throw;
    }
}

bool HandleMutexChain::tryLockFor(std::chrono::milliseconds limit) const
{
    // A mutex that can wait for a time is of another kind, which the thread sanitizer does not
    // know.
    constexpr std::chrono::milliseconds pause{1};
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!tryLock()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
    return true;
}

bool HandleMutexChain::tryLock() const
{
    std::size_t locked = 0;
    while (locked < mutexes_.size() && mutexes_[locked]->try_lock()) {
        ++locked;
    }
    if (locked < mutexes_.size()) {
        unlockFirst(locked);
        return false;
    }
    return true;
}

void HandleMutexChain::unlock() const noexcept
{
    unlockFirst(mutexes_.size());
}

void HandleMutexChain::unlockFirst(std::size_t count) const noexcept
{
    while (count > 0) {
        mutexes_[--count]->unlock();
    }
}

HandleUnlock::HandleUnlock(std::shared_ptr<const HandleMutexChain> chain) noexcept
    : chain_(std::move(chain))
{}

HandleLock lockChain(const std::shared_ptr<const HandleMutexChain>& chain)
{
    chain->lock();
    return {chain.get(), HandleUnlock(chain)};
}

HandleLock lockChainWithin(const std::shared_ptr<const HandleMutexChain>& chain,
                           std::chrono::milliseconds limit)
{
    return chain->tryLockFor(limit) ? HandleLock(chain.get(), HandleUnlock(chain)) : HandleLock();
}

} // namespace FileSystem
