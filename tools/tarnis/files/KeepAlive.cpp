#include "files/KeepAlive.h"

namespace TarnisTool {

namespace {

constexpr std::chrono::seconds interval{1};

} // namespace

KeepAlive::KeepAlive(const Endpoint& endpoint)
    : endpoint_(endpoint)
    , next_(Clock::now() + interval)
{}

// Whether the endpoint has gone is for the next operation to tell.
void KeepAlive::wait()
{
    if (Clock::now() < next_ || !endpoint_.system().isValid()) {
        return;
    }
    static_cast<void>(endpoint_.system().fileType("."));
    next_ = Clock::now() + interval;
}

} // namespace TarnisTool
