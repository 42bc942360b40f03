#include "handles/SSHCallLimits.h"

#include "handles/Deadline.h"

namespace Tarnis {

std::atomic<SSHCallLimits::Ticks::rep> SSHCallLimits::retryLimit_{defaultRetryLimit.count()};

std::atomic<SSHCallLimits::Ticks::rep> SSHCallLimits::trust_{defaultTrust.count()};

SSHCallLimits::Ticks SSHCallLimits::retryLimit() noexcept
{
    return Ticks(retryLimit_.load());
}

void SSHCallLimits::setRetryLimit(Ticks limit) noexcept
{
    retryLimit_.store(limit.count());
}

SSHCallLimits::Ticks SSHCallLimits::trust() noexcept
{
    return Ticks(trust_.load());
}

void SSHCallLimits::setTrust(Ticks trust) noexcept
{
    trust_.store(trust.count());
}

SSHCallLimits::Ticks SSHCallLimits::now()
{
    return std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch());
}

SSHCallLimits::Ticks SSHCallLimits::deadlineAfter(std::chrono::milliseconds timeout)
{
    return Tarnis::deadlineAfter(now(), timeout);
}

} // namespace Tarnis
