#pragma once

#include "files/Cancellation.h"
#include "files/Place.h"
#include "files/StreamTarget.h"
#include "files/StreamedFile.h"

#include <string>

namespace TarnisTool {

/// Copies one file into a stream of this machine.
class StreamedCopy
{
public:
    StreamedCopy(Place& from, std::string source, StreamTarget& target,
                 const Cancellation& cancellation);

    /// Throws Failure.
    void run();

private:
    void followLinks();

    Place& from_;
    std::string source_;
    StreamTarget& target_;
    const Cancellation& cancellation_;
};

} // namespace TarnisTool
