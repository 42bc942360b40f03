#include <FileSystem/HandleObjectCoreComposite.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace FileSystem {

HandleObjectCoreComposite::HandleObjectCoreComposite(HandleObjectCoreComposite* parent)
    : HandleObjectCore(parent)
{}

HandleObjectCoreComposite::~HandleObjectCoreComposite()
{
    // A child that outlives this object must find neither its parent nor a valid native object.
    invalidateQuietly();
}

void HandleObjectCoreComposite::do_invalidate()
{
    try {
        invalidateChildren();
    } catch (...) {
        // Without its children it is of no more use than after a smooth end.
        HandleObjectCore::do_invalidate();
        throw;
    }
    HandleObjectCore::do_invalidate();
}

std::shared_ptr<HandleObjectCore>
HandleObjectCoreComposite::addChild(std::unique_ptr<HandleObjectCore>&& child)
{
    std::shared_ptr<HandleObjectCore> shared = std::move(child);
    if (shared == nullptr) {
        return shared;
    }
    const auto lock = getLock();
    if (!isValid()) {
        shared->invalidate();
        return shared;
    }
    children_.push_back(shared);
    shared->parent_ = this;
    return shared;
}

void HandleObjectCoreComposite::invalidateChildren()
{
    const auto leaving = std::exchange(children_, {});
    std::exception_ptr failure;
    for (const auto& child : leaving) {
        try {
            child->invalidate();
        } catch (...) {
            // The others must learn all the same that this parent is going.
            failure = failure != nullptr ? failure : std::current_exception();
        }
        child->parent_ = nullptr;
    }
    if (failure != nullptr) {
        std::rethrow_exception(failure);
    }
}

std::shared_ptr<HandleObjectCore>
HandleObjectCoreComposite::removeChild(const HandleObjectCore& child)
{
    const auto found = std::find_if(children_.begin(), children_.end(),
                                    [&child](const auto& kept) { return kept.get() == &child; });
    if (found == children_.end()) {
        return nullptr;
    }
    auto removed = std::move(*found);
    children_.erase(found);
    return removed;
}

} // namespace FileSystem
