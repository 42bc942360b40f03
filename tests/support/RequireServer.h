#pragma once

#include "support/Availability.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>

namespace TarnisTest {

/// Set in the environment (to anything) where every server must be there, as on the build machines:
/// a missing one then fails the tests that need it.
inline constexpr const char* kRequireAllServersVariable = "TARNIS_REQUIRE_ALL_SERVERS";

/// Names of servers, with blanks between, that are skipped even so: the scripts set it for those
/// that this release of Debian does not have.
inline constexpr const char* kAbsentServersVariable = "TARNIS_ABSENT_SERVERS";

namespace Detail {

/// A reason begins with the server's name.
inline bool isKnownAbsent(const std::string& reason)
{
    const char* const absent = std::getenv(kAbsentServersVariable);
    std::istringstream names(absent != nullptr ? absent : "");
    for (std::string name; names >> name;) {
        if (reason.rfind(name + " ", 0) == 0) {
            return true;
        }
    }
    return false;
}

inline void skipOrFail(const std::string& reason)
{
    if (std::getenv(kRequireAllServersVariable) != nullptr && !isKnownAbsent(reason)) {
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
