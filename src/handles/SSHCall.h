#pragma once

#include "handles/SSHCallLimits.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SessionBlockingGuard.h>

#include <libssh/libssh.h>

#include <functional>
#include <thread>
#include <type_traits>

namespace Tarnis {

class SSHHandleSession;

/// A session's own handle is invalid only where libssh had no memory for a session. What was made
/// from a session is invalid once that has gone, which FileSystem::Failure::last() says by itself.
template <class Handle>
[[noreturn]] void throwInvalid()
{
    if constexpr (std::is_same_v<std::remove_const_t<Handle>, SSHHandleSession>) {
        FileSystem::fail(FileSystem::FailureCode::NoResources);
    }
    throw FileSystem::handle_fatal_error("invalid");
}

/// Runs one libssh call on a handle's native object, under the handle's lock, and returns its
/// result. The object is the call's first argument. Throws handle_fatal_error("invalid") when the
/// handle is invalid, and whatever fatal error is recorded for it; the lock is free again then.
template <class Handle, class Function, class... Args>
auto callLocked(Handle& handle, Function&& function, Args... args)
{
    if (!handle.isValid()) {
        throwInvalid<Handle>();
    }
    handle.checkFatalError();
    const auto lock = handle.getLock();
    auto* const resource = handle.getResource();
    if (resource == nullptr) {
        // Another thread retired the handle while this one waited for the lock.
        throw FileSystem::handle_fatal_error("invalid");
    }
    if constexpr (std::is_void_v<std::invoke_result_t<Function, decltype(resource), Args...>>) {
        std::invoke(function, resource, args...);
        handle.checkFatalError();
    } else {
        auto result = std::invoke(function, resource, args...);
        handle.checkFatalError();
        return result;
    }
}

/// Repeats a libssh call while it answers `Again`, with a short pause between the tries, until the
/// time limit is over; then tries once more and returns whatever comes. Holds the handle's lock
/// all the time, so that no other call can come between two tries of one. The caller puts the
/// session into non-blocking mode, or there is nothing to repeat.
///
/// The limit is read off the wall clock, so setting the clock back prolongs it.
template <int Again = SSH_AGAIN, class Handle, class Function, class... Args>
int callNonBlocking(Handle& handle, Function&& function, Args... args)
{
    const auto lock = handle.getLock();
    const auto deadline = SSHCallLimits::now() + SSHCallLimits::retryLimit();
    do {
        const int result = callLocked(handle, function, args...);
        if (result != Again) {
            return result;
        }
        std::this_thread::sleep_for(SSHCallLimits::pause);
    } while (SSHCallLimits::now() < deadline);
    return callLocked(handle, function, args...);
}

/// callNonBlocking with the session switched to non-blocking mode for its duration.
template <int Again = SSH_AGAIN, class Handle, class Function, class... Args>
int callUnblocked(Handle& handle, Function&& function, Args... args)
{
    const auto lock = handle.getLock();
    const SessionBlockingGuard guard(handle.getResource(), 0);
    return callNonBlocking<Again>(handle, function, args...);
}

} // namespace Tarnis
