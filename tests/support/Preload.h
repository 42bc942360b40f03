#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace TarnisTest {

/// The environment of a process that starts with a library of ours loaded before its own. In
/// LD_PRELOAD a blank or a colon ends a name, so the directory, which may have blanks in its path,
/// is told in LD_LIBRARY_PATH.
inline std::vector<std::string> preloading(const std::filesystem::path& library)
{
    return {"LD_PRELOAD=" + library.filename().string(),
            "LD_LIBRARY_PATH=" + library.parent_path().string()};
}

} // namespace TarnisTest
