#include "failure/FailureRecord.h"

#include <FileSystem/HandleObjectCore.h>
#include <FileSystem/HandleObjectCoreComposite.h>

#include <utility>

namespace FileSystem {

HandleObjectCore::HandleObjectCore(HandleObjectCoreComposite* parent)
    : mutexes_(std::make_shared<const HandleMutexChain>(parent != nullptr ? parent->mutexes_.get()
                                                                          : nullptr))
{}

HandleObjectCore::~HandleObjectCore() = default;

bool HandleObjectCore::isValid() const
{
    return do_isValid();
}

void HandleObjectCore::invalidate()
{
    const auto lock = getLock();
    do_invalidate();
}

void HandleObjectCore::invalidateQuietly() noexcept
{
    try {
        invalidate();
    } catch (...) {
        // Nobody could act on it: the object is going away.
    }
}

void HandleObjectCore::deleteMe()
{
    // Declared before the lock: where the parent held the last reference, this object must not go
    // before the lock is released.
    std::shared_ptr<HandleObjectCore> self;
    const auto lock = getLock();
    do_invalidate();
    if (parent_ != nullptr) {
        self = parent_->removeChild(*this);
        parent_ = nullptr;
    }
}

void HandleObjectCore::do_checkFatalError()
{
    if (hasFatalError_.load(std::memory_order_acquire)) {
        // It may have been made by another thread.
        if (auto* const record = FailureRecord::ofThisThread()) {
            record->expectLoss();
        }
        std::rethrow_exception(fatalError_);
    }
}

void HandleObjectCore::do_invalidate()
{
    valid_.store(false, std::memory_order_release);
}

bool HandleObjectCore::do_isValid() const
{
    return valid_.load(std::memory_order_acquire);
}

HandleLock HandleObjectCore::getLock() const
{
    return lockChain(mutexes_);
}

HandleLock HandleObjectCore::getLockWithin(std::chrono::milliseconds limit) const
{
    return lockChainWithin(mutexes_, limit);
}

void HandleObjectCore::checkFatalError()
{
    do_checkFatalError();
}

void HandleObjectCore::recordFatalError(std::exception_ptr error)
{
    const auto lock = getLock();
    if (error == nullptr || hasFatalError_.load(std::memory_order_relaxed)) {
        return;
    }
    fatalError_ = std::move(error);
    hasFatalError_.store(true, std::memory_order_release);
}

} // namespace FileSystem
