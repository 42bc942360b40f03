#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/HandleLock.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>

namespace FileSystem {

class HandleObjectCoreComposite;

/// Base of every handle: a lockable object of a tree that is valid until it is invalidated, by its
/// owner or with its parent, and never becomes valid again.
///
/// Threads: every public operation may be called from any thread. invalidate() and deleteMe() take
/// the handle's lock, so they block while another thread works on the handle or on one above it.
/// They throw std::system_error, having done nothing, when the operating system refuses the lock.
class FILESYSTEM_EXPORT HandleObjectCore
{
public:
    /// A valid handle below `parent`, or a root when it is null. The parent keeps the new handle
    /// only once it is given to HandleObjectCoreComposite::addChild.
    explicit HandleObjectCore(HandleObjectCoreComposite* parent);
    HandleObjectCore(const HandleObjectCore&) = delete;
    HandleObjectCore& operator=(const HandleObjectCore&) = delete;

    /// Whether the handle can still be used. Does not lock: another thread may invalidate the
    /// handle right after the answer.
    bool isValid() const;

    /// Makes the handle, and everything below it, invalid and releases what it owns, at once.
    /// A second call does nothing. Releasing may wait for a server, where what is owned is one's:
    /// an open remote file waits for the answer to its close.
    void invalidate();

    /// The owner's last word: invalidates the handle and detaches it from its parent, which lets
    /// go of it. The memory belongs to whoever still holds the object. If nobody does, the object
    /// is gone when this returns. May wait as invalidate() does.
    void deleteMe();

protected:
    /// Throws the fatal error recorded for this handle, if there is one.
    virtual void do_checkFatalError();
    /// Marks the handle invalid. Called under the lock. Overrides release what they own, and may
    /// wait for a server in doing so.
    virtual void do_invalidate();
    /// True until the handle is invalidated. Overrides add a condition of their own.
    virtual bool do_isValid() const;

public:
    // After the three operations above: their slots are the interface, and children are destroyed
    // through pointers to this base.
    virtual ~HandleObjectCore();

protected:
    /// Locks the handle, its ancestors first, until the returned object is destroyed. Blocks. The
    /// thread that holds the lock may take it again. Throws std::system_error, holding nothing,
    /// when the operating system refuses the lock.
    HandleLock getLock() const;

    /// As getLock(), but gives up after `limit`: null then.
    HandleLock getLockWithin(std::chrono::milliseconds limit) const;

    /// Throws what do_checkFatalError() throws; returns when no fatal error is recorded.
    void checkFatalError();

    /// Records an error that every later checkFatalError() of this handle throws. The first one
    /// sticks; null is ignored. Takes the lock, and blocks and throws as getLock() does.
    void recordFatalError(std::exception_ptr error);

    /// invalidate() for destructors: an operating system that refuses the lock is ignored.
    void invalidateQuietly() noexcept;

    /// The composite that keeps this handle; null for a root and for a handle that was detached.
    /// To be called under the lock; what it points to lives for as long as the lock is held.
    HandleObjectCoreComposite* getParent() const noexcept { return parent_; }

private:
    friend class HandleObjectCoreComposite;

    std::shared_ptr<const HandleMutexChain> mutexes_;
    HandleObjectCoreComposite* parent_ = nullptr;
    std::exception_ptr fatalError_;
    std::atomic<bool> hasFatalError_{false};
    std::atomic<bool> valid_{true};
};

} // namespace FileSystem
