// An operating system that refuses a lock.

#include "framework/TestHandles.h"
#include "util/Background.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <system_error>

#include <dlfcn.h>
#include <pthread.h>

using TarnisTest::Background;
using TarnisTest::Leaf;
using TarnisTest::makeChild;
using TarnisTest::Node;

namespace {

/// Counts down this thread's locks; the one that reaches zero is refused.
thread_local int locksUntilRefusal = 0;

using SystemLock = int (*)(pthread_mutex_t*);
std::atomic<SystemLock> systemLock{nullptr};

} // namespace

// Found by the framework before the system's own.
extern "C" [[gnu::visibility("default")]] int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    // No static inside, whose initialisation could lock as well.
    SystemLock system = systemLock;
    if (system == nullptr) {
        system = reinterpret_cast<SystemLock>(::dlsym(RTLD_NEXT, "pthread_mutex_lock"));
        systemLock = system;
    }
    if (locksUntilRefusal > 0 && --locksUntilRefusal == 0) {
        return EAGAIN;
    }
    return system(mutex);
}

TEST(HandleLockFailure, OfAnyMutexOfTheChainLeavesNothingHeld)
{
    Node root;
    const auto branch = makeChild<Node>(root);
    const auto leaf = makeChild<Leaf>(*branch);
    for (const int refused : {1, 2, 3}) {
        SCOPED_TRACE(refused);
        locksUntilRefusal = refused;
        EXPECT_THROW(leaf->getLock(), std::system_error);
        EXPECT_EQ(locksUntilRefusal, 0);

        std::atomic<bool> isFree{false};
        const Background other(
            [&] { isFree = leaf->getLockWithin(std::chrono::milliseconds(0)) != nullptr; });
        ASSERT_TRUE(other.ends());
        EXPECT_TRUE(isFree);
    }
    EXPECT_NE(leaf->getLock(), nullptr);
}

TEST(HandleLockFailure, LeavesAnInvalidationUndone)
{
    Leaf handle;
    locksUntilRefusal = 1;
    EXPECT_THROW(handle.invalidate(), std::system_error);
    EXPECT_TRUE(handle.isValid());
    locksUntilRefusal = 1;
    EXPECT_THROW(handle.deleteMe(), std::system_error);
    EXPECT_TRUE(handle.isValid());
    handle.invalidate();
    EXPECT_FALSE(handle.isValid());
}
