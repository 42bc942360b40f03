#pragma once

#include "handles/SSHCallLimits.h"

namespace TarnisTest {

/// Another time limit for repeated calls, for as long as this object lives.
class RetryLimit
{
public:
    explicit RetryLimit(Tarnis::SSHCallLimits::Ticks limit)
    {
        Tarnis::SSHCallLimits::setRetryLimit(limit);
    }

    RetryLimit(const RetryLimit&) = delete;
    RetryLimit& operator=(const RetryLimit&) = delete;

    ~RetryLimit() { Tarnis::SSHCallLimits::setRetryLimit(former_); }

private:
    const Tarnis::SSHCallLimits::Ticks former_ = Tarnis::SSHCallLimits::retryLimit();
};

} // namespace TarnisTest
