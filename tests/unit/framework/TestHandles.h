#pragma once

#include <FileSystem/HandleObjectCore.h>
#include <FileSystem/HandleObjectCoreComposite.h>

#include <functional>
#include <memory>
#include <utility>

namespace TarnisTest {

/// A handle with the protected operations of `Base` in reach, and with hooks.
template <class Base>
class OpenHandle : public Base
{
public:
    explicit OpenHandle(FileSystem::HandleObjectCoreComposite* parent = nullptr)
        : Base(parent)
    {}

    ~OpenHandle() override
    {
        if (onDestruction) {
            onDestruction();
        }
    }

    using Base::checkFatalError;
    using Base::getLock;
    using Base::getLockWithin;
    using Base::getParent;
    using Base::recordFatalError;

    /// Run when the handle is invalidated, before it is marked.
    std::function<void()> onInvalidation;
    std::function<void()> onDestruction;

protected:
    void do_invalidate() override
    {
        if (onInvalidation) {
            onInvalidation();
        }
        Base::do_invalidate();
    }
};

using Leaf = OpenHandle<FileSystem::HandleObjectCore>;

class Node : public OpenHandle<FileSystem::HandleObjectCoreComposite>
{
public:
    using HandleObjectCoreComposite::addChild;
    using HandleObjectCoreComposite::children;
    using HandleObjectCoreComposite::invalidateChildren;
    using OpenHandle::OpenHandle;
};

/// A new child below `parent`, registered there.
template <class Child>
std::shared_ptr<Child> makeChild(Node& parent)
{
    return std::static_pointer_cast<Child>(parent.addChild(std::make_unique<Child>(&parent)));
}

} // namespace TarnisTest
