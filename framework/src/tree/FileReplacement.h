#pragma once

#include <optional>
#include <string>

namespace FileSystem {

class StorageSystem;
struct StorageSystemFileInfo;

/// Renaming of a file or a link. Whoever calls it has looked at what stands at both paths: far from
/// a server each question counts.
class FileReplacement
{
public:
    /// Gives what stands at a path another one. A file or a link at the new path makes room, in one
    /// atomic step where the system can. It is back when the path cannot be taken after all. Where
    /// it cannot be removed in the end, that is no failure: everything has its name. What is to get
    /// the new path may have several names, that one among them.
    /// \param file     what stands at the path.
    /// \param replaced what stands at the new path, if anything.
    static bool replaceByAny(const StorageSystem& system, const std::string& path,
                             const StorageSystemFileInfo& file, const std::string& newPath,
                             const std::optional<StorageSystemFileInfo>& replaced);

private:
    /// False: it is where it was, as far as the system tells.
    static bool rename(const StorageSystem& system, const std::string& from, const std::string& to);
    static bool replace(const StorageSystem& system, const std::string& path,
                        const std::string& newPath);
    static bool replaceAtOnce(const StorageSystem& system, const std::string& path,
                              const std::string& newPath);
    static bool replaceAfterLooking(const StorageSystem& system, const std::string& path,
                                    const std::string& newPath);
    static bool replaceInSteps(const StorageSystem& system, const std::string& path,
                               const std::string& newPath);
    static bool takePlace(const StorageSystem& system, const std::string& path,
                          const std::string& newPath);
    static bool bringBack(const StorageSystem& system, const std::string& aside,
                          const std::string& path);
    static bool removeOtherName(const StorageSystem& system, const std::string& path,
                                const StorageSystemFileInfo& file, const std::string& newPath);
};

} // namespace FileSystem
