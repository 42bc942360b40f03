#pragma once

#include <cstddef>

namespace TarnisTool {

/// How files are copied.
struct CopyOptions
{
    /// Directories are copied too, with everything below them.
    bool isRecursive = false;
    /// Permissions and times are kept.
    bool preserves = false;
    /// A copy that was interrupted goes on.
    bool resumes = false;
    /// What is written goes into the file that is there.
    bool isInPlace = false;
    /// Files at the same time; 0 for as many as pay.
    std::size_t inFlight = 0;
};

} // namespace TarnisTool
