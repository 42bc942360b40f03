#include <FileSystem/HandleObjectCoreComposite.h>

#include <algorithm>
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
    invalidateChildren();
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
    for (const auto& child : leaving) {
        child->invalidate();
        child->parent_ = nullptr;
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
