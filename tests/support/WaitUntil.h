#pragma once

#include <chrono>
#include <functional>

namespace TarnisTest {

/// How long a test waits for something that is bound to happen. Generous, since a machine that
/// runs many tests under a sanitizer is slow: it only ever passes in full when the test fails.
inline constexpr std::chrono::seconds kGenerousLimit{30};

/// Asks `condition` again and again, every few milliseconds, until it holds (true) or the limit has
/// passed (false).
[[nodiscard]] bool waitUntil(const std::function<bool()>& condition,
                             std::chrono::milliseconds limit = kGenerousLimit);

} // namespace TarnisTest
