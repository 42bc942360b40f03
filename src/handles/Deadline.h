#pragma once

#include <chrono>

namespace Tarnis {

/// The moment `timeout` after `now`: `now` itself for zero or less, the end of time when that is
/// nearer. `Moment` is a time point, or a duration since some start.
template <class Moment>
Moment deadlineAfter(Moment now, std::chrono::milliseconds timeout)
{
    if (timeout <= std::chrono::milliseconds::zero()) {
        return now;
    }
    // Compared in the coarser unit: the longest time-outs do not fit the finer one.
    const auto longest = std::chrono::duration_cast<std::chrono::milliseconds>(Moment::max() - now);
    return timeout >= longest ? Moment::max() : now + timeout;
}

} // namespace Tarnis
