#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace Tarnis {

/// How many requests of a transfer may be under way. Begins small and grows with every answer, so
/// that it doubles with each round trip, as long as answers come soon: on a slow line more requests
/// bring nothing, and whoever stops the transfer has to wait for all of them.
/// \tparam Clock tells how long an answer took.
template <class Clock>
class SFTPWindowOf
{
public:
    std::size_t size() const noexcept { return size_; }

    /// Runs `collect`, which waits for the oldest answer, and learns from how long that takes.
    /// \param isAmple more requests would bring nothing where the answer is there at once.
    template <class Collect>
    auto watch(Collect collect, bool isAmple = false)
    {
        const auto start = Clock::now();
        auto result = collect();
        const auto took = Clock::now() - start;
        if (took < soon && (took > atOnce || !isAmple)) {
            size_ = std::min(size_ + 1, largest);
        }
        return result;
    }

private:
    static constexpr std::size_t smallest = 2;
    static constexpr std::size_t largest = 64;
    static constexpr std::chrono::microseconds atOnce{1'500};
    static constexpr std::chrono::milliseconds soon{500};

    std::size_t size_ = smallest;
};

using SFTPWindow = SFTPWindowOf<std::chrono::steady_clock>;

} // namespace Tarnis
