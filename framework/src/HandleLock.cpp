#include <FileSystem/HandleLock.h>

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

} // namespace FileSystem
