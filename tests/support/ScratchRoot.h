#pragma once

#include "support/UniqueFd.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace TarnisTest {

/// A fresh directory that lasts as long as this process. It is removed with everything in it when
/// the process is gone, and any copy of it made by fork, however they ended: a process outside
/// watches, which neither SIGKILL nor the time-out of a test reaches.
class ScratchRoot
{
public:
    /// Throws std::system_error when the directory or its watcher cannot be made.
    ScratchRoot();

    const std::string& path() const { return path_; }

    /// The one in which everything temporary of this program is made.
    static const ScratchRoot& ofThisProgram();

private:
    void startWatcher(int readEnd) const;

    std::string path_;
    /// Never written to: that it closes tells the watcher that the process is gone.
    UniqueFd lifeline_;
};

/// Makes a fresh directory, for the owner alone, whose path begins with what is given. Throws
/// std::system_error when it cannot be made.
std::string makeUniqueDirectory(const std::filesystem::path& pathAndPrefix);

/// Makes a fresh directory, for the owner alone, in the scratch directory of this program; the name
/// begins with the prefix. Throws std::system_error when it cannot be made.
std::string makeScratchDirectory(std::string_view prefix = {});

} // namespace TarnisTest
