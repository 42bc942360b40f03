#include "handles/SSHCallLimits.h"

namespace Tarnis {

std::atomic<SSHCallLimits::Ticks::rep> SSHCallLimits::retryLimit_{defaultRetryLimit.count()};

SSHCallLimits::Ticks SSHCallLimits::retryLimit() noexcept
{
    return Ticks(retryLimit_.load());
}

void SSHCallLimits::setRetryLimit(Ticks limit) noexcept
{
    retryLimit_.store(limit.count());
}

SSHCallLimits::Ticks SSHCallLimits::now()
{
    return std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch());
}

SSHCallLimits::Ticks SSHCallLimits::deadlineAfter(std::chrono::milliseconds timeout)
{
    const auto start = now();
    if (timeout <= std::chrono::milliseconds::zero()) {
        return start;
    }
    // Compared in the coarser unit: the longest time-outs do not fit the finer one.
    const auto longest =
        std::chrono::duration_cast<std::chrono::milliseconds>(Ticks::max() - start);
    return timeout >= longest ? Ticks::max() : start + timeout;
}

} // namespace Tarnis
