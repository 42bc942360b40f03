#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Tarnis {

/// How long callNonBlocking keeps trying, and how long it pauses between two tries.
class SSHCallLimits
{
public:
    /// The unit in which the limits are counted.
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

    static constexpr Ticks defaultRetryLimit = std::chrono::seconds(100);
    static constexpr std::chrono::microseconds pause{100};

    static Ticks retryLimit() noexcept;

    /// For tests, which cannot wait for 100 seconds each. Holds for the whole process.
    static void setRetryLimit(Ticks limit) noexcept;

    /// The wall clock in ticks.
    static Ticks now();

    /// The moment `timeout` from now, or the end of time when that is beyond it. Zero or less is
    /// now.
    static Ticks deadlineAfter(std::chrono::milliseconds timeout);

private:
    static std::atomic<Ticks::rep> retryLimit_;
};

} // namespace Tarnis
