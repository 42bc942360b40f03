#pragma once

#include <FileSystem/HandleObjectCore.h>
#include <FileSystem/HandleObjectCoreComposite.h>

#include <atomic>

namespace FileSystem {

/// A handle that owns a native object and releases it at invalidation, so that an invalid handle
/// that is still referenced holds no native object.
///
/// \tparam Resource type of the native object.
/// \tparam Deleter  stateless function object that releases a `Resource*`; must not throw.
/// \tparam Base     HandleObjectCore or HandleObjectCoreComposite.
/// \tparam Parent   type of the handle that this one is created under.
template <class Resource, class Deleter, class Base, class Parent>
class HandleObjectGeneric : public Base
{
public:
    using resource_type = Resource;

    /// Takes `resource` over. With a null resource the handle is invalid from the start.
    HandleObjectGeneric(Parent* parent, Resource* resource)
        : Base(parent)
        , resource_(resource)
    {}

    /// Releases a native object that is still there, those of the children first.
    ~HandleObjectGeneric() override { this->invalidateQuietly(); }

    /// The native object, null after invalidation. Lent: to be used under the lock only.
    Resource* getResource() const noexcept { return resource_.load(std::memory_order_acquire); }

protected:
    void do_invalidate() override
    {
        Base::do_invalidate();
        release(exchangeResource(nullptr));
    }

    bool do_isValid() const override { return Base::do_isValid() && getResource() != nullptr; }

    /// Puts another native object in place and returns the former one, which the caller then owns.
    Resource* exchangeResource(Resource* resource) noexcept
    {
        return resource_.exchange(resource, std::memory_order_acq_rel);
    }

    /// Releases a native object with the deleter; null is ignored.
    static void release(Resource* resource) noexcept
    {
        if (resource != nullptr) {
            Deleter{}(resource);
        }
    }

private:
    // Atomic because isValid() reads it without the lock.
    std::atomic<Resource*> resource_;
};

/// The composite form: owns a native object and keeps children.
///
/// \tparam Self the class that derives from this one.
template <class Self, class Resource, class Deleter, class Parent>
class HandleObjectCompositeEx
    : public HandleObjectGeneric<Resource, Deleter, HandleObjectCoreComposite, Parent>
{
public:
    using HandleObjectGeneric<Resource, Deleter, HandleObjectCoreComposite,
                              Parent>::HandleObjectGeneric;
};

} // namespace FileSystem
