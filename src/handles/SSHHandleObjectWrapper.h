#pragma once

#include <Tarnis/SSHDefaultDeleter.h>

#include <memory>
#include <utility>

namespace Tarnis {

/// Opens the framework's protected lock and error checks to the code that calls libssh on a handle
/// (SSHCall.h). Adds no state.
template <class Handle>
class SSHHandleObjectWrapper : public Handle
{
public:
    using Handle::checkFatalError;
    using Handle::getLock;
    using Handle::getLockWithin;
    using Handle::Handle;
};

/// Wraps a libssh object in a new handle below `parent` and registers it there. To be called under
/// the parent's lock, together with the call that made the object: a disconnect in between would
/// free it.
template <class Child, class Parent, class Resource>
std::shared_ptr<Child> makeChildHandle(Parent& parent, Resource* resource)
{
    std::unique_ptr<Resource, ssh_default_deleter<Resource>> owned(resource);
    auto child = std::make_unique<Child>(&parent, owned.get());
    static_cast<void>(owned.release());
    return std::static_pointer_cast<Child>(parent.addChild(std::move(child)));
}

} // namespace Tarnis
