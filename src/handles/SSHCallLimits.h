#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Tarnis {

/// How long callNonBlocking keeps trying, how long it pauses between two tries, and for how long a
/// channel that nobody uses is trusted to be alive.
class SSHCallLimits
{
public:
    /// The unit in which the limits are counted.
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

    static constexpr Ticks defaultRetryLimit = std::chrono::seconds(100);
    static constexpr std::chrono::microseconds pause{100};
    static constexpr Ticks defaultTrust = std::chrono::seconds(2);

    static Ticks retryLimit() noexcept;

    /// For tests, which cannot wait for 100 seconds each. Holds for the whole process.
    static void setRetryLimit(Ticks limit) noexcept;

    static Ticks trust() noexcept;

    /// For tests, as above.
    static void setTrust(Ticks trust) noexcept;

    /// The wall clock in ticks.
    static Ticks now();

    /// The moment `timeout` from now, or the end of time when that is beyond it. Zero or less is
    /// now.
    static Ticks deadlineAfter(std::chrono::milliseconds timeout);

private:
    static std::atomic<Ticks::rep> retryLimit_;
    static std::atomic<Ticks::rep> trust_;
};

} // namespace Tarnis
