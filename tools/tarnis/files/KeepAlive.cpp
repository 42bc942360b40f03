#include "files/KeepAlive.h"

namespace TarnisTool {

namespace {

constexpr std::chrono::seconds interval{1};

} // namespace

KeepAlive::KeepAlive(Endpoint& endpoint)
    : endpoint_(endpoint)
    , next_(Clock::now() + interval)
{}

void KeepAlive::wait()
{
    if (Clock::now() >= next_) {
        endpoint_.requireAlive();
        next_ = Clock::now() + interval;
    }
}

} // namespace TarnisTool
