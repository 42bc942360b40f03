#pragma once

#include <string>
#include <utility>

namespace TarnisTest {

/// Whether a server that a test needs can be run on this machine, and if not, why.
struct Availability
{
    bool usable = true;
    /// Empty when usable; otherwise what is missing, for a person to read.
    std::string reason;

    static Availability yes() { return {}; }

    static Availability no(std::string why) { return {false, std::move(why)}; }
};

} // namespace TarnisTest
