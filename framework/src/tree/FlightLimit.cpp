#include "tree/FlightLimit.h"

#include <algorithm>

namespace FileSystem {

/// It grows at once, and shrinks bit by bit: small files and long ways make a rate uneven.
void FlightLimit::note(std::uint64_t bytesDone)
{
    constexpr std::chrono::milliseconds shortest{100};
    constexpr double seconds = 2;
    const auto now = Clock::now();
    // What is begun anew does not count any more.
    doneBefore_ = std::min(doneBefore_, bytesDone);
    if (bytesDone == doneBefore_ || now - before_ < shortest) {
        return;
    }
    const std::chrono::duration<double> took = now - before_;
    const double rate = static_cast<double>(bytesDone - doneBefore_) / took.count();
    const auto wanted = static_cast<std::uint64_t>(rate * seconds);
    bytes_ = std::clamp(std::max(wanted, bytes_ - bytes_ / 4), fewest, most);
    doneBefore_ = bytesDone;
    before_ = now;
}

} // namespace FileSystem
