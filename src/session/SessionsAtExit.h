#pragma once

#include <functional>

namespace Tarnis {

/// Ends the sessions that a program leaves behind when it exits, while they still can be ended.
///
/// libcrypto cleans up in a function that it has exit() call, and exit() calls such functions and
/// the destructors of static objects in one order: the youngest first. A static object that is
/// older than libcrypto's first use outlives it, and a session in there, or what was made from one,
/// would use what has been freed. So the first session brings libcrypto in, and has exit() call
/// the end of all sessions that are still there before libcrypto's.
///
/// Any thread may call any operation.
class SessionsAtExit
{
public:
    /// Adds a session; `end` ends it, and may be called in whatever thread calls exit(). Throws
    /// std::bad_alloc.
    static void add(const void* session, std::function<void()> end);

    /// Takes a session out again. Waits while it is being ended. Not under the session's lock.
    static void remove(const void* session) noexcept;

    /// Whether exit() has ended the sessions: there must be no new one.
    static bool areOver() noexcept;
};

} // namespace Tarnis
