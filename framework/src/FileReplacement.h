#pragma once

#include <string>

namespace FileSystem {

class StorageSystem;

/// Renaming of a file or a link, without asking first what stands where: far from a server each
/// question counts. Only for what is known to be no directory.
class FileReplacement
{
public:
    /// False: it is where it was, as far as the system tells.
    static bool rename(const StorageSystem& system, const std::string& path,
                       const std::string& newPath);

    /// As rename(). A file or a link at the new path makes room, in one atomic step where the
    /// system can. It is back when the path cannot be taken after all.
    static bool replace(const StorageSystem& system, const std::string& path,
                        const std::string& newPath);

private:
    static bool replaceAtOnce(const StorageSystem& system, const std::string& path,
                              const std::string& newPath);
    static bool replaceInSteps(const StorageSystem& system, const std::string& path,
                               const std::string& newPath);
};

} // namespace FileSystem
