#pragma once

#include "files/Place.h"

#include <cstdint>
#include <functional>
#include <string>

namespace TarnisTool {

/// Where a file is written to that is not to become a file.
struct Stream
{
    int descriptor;
    /// As messages name it.
    std::string name;
};

/// Writes a file of a place to a stream.
/// \param goesOn told how far it is; false stops it. Empty for always.
/// \return false: it was stopped. Throws Failure for everything else that keeps it from being
///         written whole.
bool streamFile(Place& place, const std::string& id, const Stream& stream,
                const std::function<bool(std::uint64_t done)>& goesOn = {});

} // namespace TarnisTool
