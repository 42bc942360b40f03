#pragma once

#include <cstddef>
#include <cstdint>

namespace Tarnis {

/// What those who use several channels of a session have beyond one each. They give it back when
/// somebody has no channel at all. To be used under the session's lock.
struct ExtraChannels
{
    std::size_t users = 0;        ///< Those who may have several, and open and close them.
    std::size_t opening = 0;      ///< Those who open their first one.
    std::size_t count = 0;        ///< Open, or being given back.
    std::uint64_t timesAsked = 0; ///< How often they were asked to give back all of it.
};

} // namespace Tarnis
