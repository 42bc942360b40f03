#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <utility>

namespace TarnisTest {

/// An action that runs in a thread of its own. Its destructor waits for the action to end.
class Background
{
public:
    explicit Background(std::function<void()> action)
        : done_(std::async(std::launch::async, std::move(action)))
    {}

    /// Whether the action is still going on after a moment: long enough for one that nothing
    /// holds up to be through.
    bool isHeldUp() const { return done_.wait_for(aMoment) == std::future_status::timeout; }

    /// Waits for the action to end, and gives up after a time that is long for any of them.
    bool ends() const { return done_.wait_for(veryLong) == std::future_status::ready; }

private:
    static constexpr std::chrono::milliseconds aMoment{50};
    static constexpr std::chrono::seconds veryLong{60};

    std::future<void> done_;
};

} // namespace TarnisTest
