#pragma once

#include "support/Availability.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace TarnisTest {

/// Set in the environment (to anything) where every server must be there, as on the build machines:
/// a missing one then fails the tests that need it.
inline constexpr const char* kRequireAllServersVariable = "TARNIS_REQUIRE_ALL_SERVERS";

namespace Detail {

inline void skipOrFail(const std::string& reason)
{
    if (std::getenv(kRequireAllServersVariable) != nullptr) {
        FAIL() << "a required server is missing: " << reason;
    }
    GTEST_SKIP() << reason;
}

} // namespace Detail

/// To be called first in SetUp: answers whether the test can go on. If not, the test has been
/// marked as skipped (or as failed, where all servers are required) and SetUp must return at once.
///
///     if (!requireServer(PasswordSshServer::availability())) {
///         return;
///     }
[[nodiscard]] inline bool requireServer(const Availability& availability)
{
    if (!availability.usable) {
        Detail::skipOrFail(availability.reason);
    }
    return availability.usable;
}

} // namespace TarnisTest
