#pragma once

#include "files/EntryFilter.h"

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
    /// Files that look the same at the target are left out, and times are kept to tell by.
    bool updates = false;
    /// Files that are there are left out.
    bool keepsStanding = false;
    /// What the source does not have is removed from directories that are copied into.
    bool removesOthers = false;
    /// Nothing is done, only told.
    bool isDryRun = false;
    /// Each entry is told.
    bool isVerbose = false;
    /// Files at the same time; 0 for as many as pay.
    std::size_t inFlight = 0;
    /// What is copied of that which is below a directory.
    EntryFilter filter;
};

} // namespace TarnisTool
