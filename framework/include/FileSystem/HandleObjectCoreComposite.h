#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/HandleObjectCore.h>

#include <memory>
#include <vector>

namespace FileSystem {

/// A handle that keeps child handles and takes them along when it is invalidated.
class FILESYSTEM_EXPORT HandleObjectCoreComposite : public HandleObjectCore
{
public:
    /// As HandleObjectCore's.
    explicit HandleObjectCoreComposite(HandleObjectCoreComposite* parent);
    ~HandleObjectCoreComposite() override;

protected:
    /// Invalidates every child, lets go of it, then marks this handle invalid; throws as
    /// invalidateChildren() does, but is invalid then.
    void do_invalidate() override;

    /// Takes a new child over, keeps a shared reference to it and returns another. The child's
    /// parent must have been given as this handle when it was made. When this handle is already
    /// invalid the child is invalidated at once and not kept. Null gives null. Takes the lock, and
    /// blocks and throws as getLock() does; the child is gone then.
    std::shared_ptr<HandleObjectCore> addChild(std::unique_ptr<HandleObjectCore>&& child);

    /// Invalidates every child and lets go of it; this handle itself stays as it is. To be called
    /// under the lock. When children throw, goes on through all, then throws what the first of them
    /// threw.
    void invalidateChildren();

    /// The children, oldest first. To be used under the lock.
    const std::vector<std::shared_ptr<HandleObjectCore>>& children() const noexcept
    {
        return children_;
    }

private:
    friend class HandleObjectCore;

    /// Lets go of a child. The reference is returned, so that the caller decides when the child
    /// may be destroyed.
    std::shared_ptr<HandleObjectCore> removeChild(const HandleObjectCore& child);

    std::vector<std::shared_ptr<HandleObjectCore>> children_;
};

} // namespace FileSystem
